#pragma once

#include <csignal>

namespace Zyr {

/// Keeps the signals of a write from ending the application, for the calling thread and as long as it lives: SIGPIPE
/// (nobody reads) and SIGXFSZ (the file is at the process's limit). The call fails with an error instead. Those that
/// were raised meanwhile are gone afterwards; those that were pending before stay so. Keeps errno.
class HeldSignals
{
public:
    HeldSignals() noexcept;
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

private:
    sigset_t raised; ///< what may be raised meanwhile and was not pending before
    sigset_t before;
};

} // namespace Zyr
