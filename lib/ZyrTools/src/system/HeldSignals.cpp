// Writes that end no program.
#include "system/HeldSignals.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <initializer_list>

namespace Zyr {

HeldSignals::HeldSignals() noexcept
{
    ::sigemptyset(&raised);
    ::sigaddset(&raised, SIGPIPE);
    ::sigaddset(&raised, SIGXFSZ);
    ::pthread_sigmask(SIG_BLOCK, &raised, &before);
    sigset_t pending;
    ::sigpending(&pending);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        if (::sigismember(&pending, signal))
            ::sigdelset(&raised, signal);
    }
}

HeldSignals::~HeldSignals()
{
    const int error = errno;
    const timespec now = {};
    while (::sigtimedwait(&raised, nullptr, &now) > 0 || errno == EINTR) {
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
}

} // namespace Zyr
