// Keeps the signals that a failing write raises from the application.

#include "system/HeldSignals.h"

#include <cerrno>
#include <ctime>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zyr {

namespace {

constexpr int writeSignals[] = {SIGPIPE, SIGXFSZ};

/// The kernel sends SIGPIPE and SIGXFSZ of a write as if the process itself had sent them.
bool isOfOthers(const siginfo_t& info)
{
    return info.si_code < 0 || (info.si_code == SI_USER && info.si_pid != ::getpid());
}

} // namespace

HeldSignals::HeldSignals() noexcept
{
    ::sigemptyset(&raised);
    for (const int signal : writeSignals)
        ::sigaddset(&raised, signal);
    sigset_t blocked = raised;
    ::sigaddset(&blocked, SIGTTOU); // is not raised at all while it is blocked
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    sigset_t pending;
    ::sigpending(&pending);
    for (const int signal : writeSignals) {
        if (::sigismember(&pending, signal))
            ::sigdelset(&raised, signal);
    }
}

HeldSignals::~HeldSignals()
{
    const int error = errno;
    const timespec now = {};
    for (const int signal : writeSignals) {
        if (!isRaised(signal))
            continue;
        sigset_t one;
        ::sigemptyset(&one);
        ::sigaddset(&one, signal);
        siginfo_t info = {};
        // The signal pending for the thread is dequeued before one pending for the process, which stays.
        if (::sigtimedwait(&one, &info, &now) != signal || !isOfOthers(info))
            continue;
        // Another process's signal is sent again with its siginfo, which the kernel allows the main thread only.
        if (::syscall(SYS_rt_sigqueueinfo, ::getpid(), signal, &info) != 0)
            ::kill(::getpid(), signal);
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
}

bool HeldSignals::isRaised(int signal) const noexcept
{
    sigset_t pending;
    ::sigpending(&pending);
    return ::sigismember(&raised, signal) && ::sigismember(&pending, signal);
}

} // namespace Zyr
