#pragma once

#include <csignal>

namespace Zyr {

/// Keeps the signals of a write from the application, for the calling thread and as long as it lives: SIGPIPE (nobody
/// reads) and SIGXFSZ (the file is at the process's limit), whose call fails with an error instead, and SIGTTOU (a
/// terminal of which this is a background process), whose call goes on. Those that the thread itself raised meanwhile
/// are gone afterwards; those that were pending before, or that somebody else sent, stay. Keeps errno. Not to be held
/// while the application is called; its message handler for Qt cannot be helped.
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
    sigset_t raised; ///< what may be raised meanwhile and was not pending before
    sigset_t before;
};

} // namespace Zyr
