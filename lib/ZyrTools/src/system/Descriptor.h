#pragma once

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

/// Owns a file descriptor and closes it. It is none of the first three: where the application has closed one of those,
/// what it or another library writes to standard output or standard error must not get into this file.
class Descriptor
{
public:
    explicit Descriptor(int opened = -1) noexcept
        : fd(opened >= 0 && opened <= STDERR_FILENO ? moveUp(opened) : opened)
    {
    }
    Descriptor(Descriptor&& other) noexcept
        : fd(std::exchange(other.fd, -1))
    {
    }
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }

    int get() const noexcept { return fd; }
    explicit operator bool() const noexcept { return fd >= 0; }

    /// Closes `opened` and gives another descriptor of the same above the first three; -1 and errno where there is
    /// none.
    static int moveUp(int opened) noexcept
    {
        const int moved = ::fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int error = errno == EINVAL ? EMFILE : errno; // the former where no number above them is allowed
        ::close(opened);
        errno = error;
        return moved;
    }

private:
    int fd;
};

} // namespace Zyr
