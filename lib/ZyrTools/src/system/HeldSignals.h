#pragma once

#include <csignal>

namespace Zyr {

/// Blocks the signals of a write in the calling thread while it lives: SIGPIPE (no reader) and SIGXFSZ (file size
/// limit), where the write fails with an error, and SIGTTOU (background process on a terminal), where it goes on. What
/// the thread's own writes raised is discarded at the end; signals that were pending before, or that others sent, stay.
/// Keeps errno. Do not call the application meanwhile, except for its Qt message handler, which Qt itself calls.
class HeldSignals
{
public:
    HeldSignals() noexcept;
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    /// Whether `signal`, which was not pending before, is now.
    bool isRaised(int signal) const noexcept;

private:
    sigset_t raised; ///< the signals of a write that were not pending before
    sigset_t before;
};

} // namespace Zyr
