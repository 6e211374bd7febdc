// Writes to standard error without waiting, whatever it is: file, pipe, socket or terminal.

#include "report/StandardError.h"

#include "system/Descriptor.h"
#include "system/HeldSignals.h"
#include "system/Retry.h"

#include <QtCore/QScopeGuard>

#include <atomic>
#include <cerrno>

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>

namespace Zyr {

namespace {

ssize_t writeTo(int file, std::string_view text) noexcept
{
    return retried([&] { return ::write(file, text.data(), text.size()); });
}

constinit std::atomic_flag busy = ATOMIC_FLAG_INIT; ///< a thread is between hasRoom() and its write

bool hasRoom() noexcept
{
    fd_set room; // poll() fails with EINVAL where RLIMIT_NOFILE is 0
    FD_ZERO(&room);
    FD_SET(STDERR_FILENO, &room);
    timeval now = {};
    return ::select(STDERR_FILENO + 1, nullptr, &room, nullptr, &now) == 1;
}

/// A terminal that select() finds writable takes at least one byte without blocking.
ssize_t writeByBytes(std::string_view text) noexcept
{
    std::size_t written = 0;
    while (written < text.size() && hasRoom() && writeTo(STDERR_FILENO, text.substr(written, 1)) == 1)
        ++written;
    return ssize_t(written);
}

/// For a pipe or a terminal that cannot be opened anew: without /proc, if another user owns it, or for lack of
/// descriptors. A pipe that select() finds writable takes PIPE_BUF bytes. Where RWF_NOWAIT is not supported, another
/// process may fill it between select() and the write, which blocks then.
ssize_t writeWhereRoom(std::string_view text, bool isTerminal) noexcept
{
    if (busy.test_and_set())
        return -1;
    const auto done = qScopeGuard([] { busy.clear(); });
    if (isTerminal)
        return writeByBytes(text);
    if (!hasRoom())
        return -1;
    const iovec all = {const_cast<char*>(text.data()), text.size()};
    const ssize_t written = retried([&] { return ::pwritev2(STDERR_FILENO, &all, 1, -1, RWF_NOWAIT); });
    return written < 0 && (errno == EOPNOTSUPP || errno == ENOSYS) ? writeTo(STDERR_FILENO, text) : written;
}

ssize_t writeAtOnce(std::string_view text, mode_t mode, int flags) noexcept
{
    if (S_ISSOCK(mode)) {
        return retried([&] { return ::send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL); });
    }
    if (S_ISREG(mode) || (flags & O_NONBLOCK) != 0)
        return writeTo(STDERR_FILENO, text);
    const bool isTerminal = ::isatty(STDERR_FILENO);
    if (S_ISFIFO(mode) || isTerminal) {
        // Opened anew, as O_NONBLOCK on the shared file description would affect other processes too.
        static_assert(STDERR_FILENO == 2);
        const Descriptor own(::open("/proc/thread-self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (own)
            return writeTo(own.get(), text);
    }
    return writeWhereRoom(text, isTerminal);
}

} // namespace

void resetStandardErrorInChild() noexcept
{
    busy.clear();
}

std::size_t writeToStandardError(std::string_view text) noexcept
{
    const int flags = ::fcntl(STDERR_FILENO, F_GETFL);
    struct stat status = {};
    if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY || ::fstat(STDERR_FILENO, &status) != 0)
        return 0;
    const HeldSignals held;
    const ssize_t written = writeAtOnce(text, status.st_mode, flags);
    return written > 0 ? std::size_t(written) : 0;
}

} // namespace Zyr
