// Starts threads that handle no signals.

#include "system/BlockedSignals.h"

namespace Zyr {

BlockedSignals::BlockedSignals() noexcept
{
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before); // which returns its error and leaves errno alone
}

BlockedSignals::~BlockedSignals()
{
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace Zyr
