#pragma once

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

/// Owns a file descriptor and closes it. Never one of the first three: where the application has closed one of those,
/// output meant for standard output or standard error would get into this file.
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

    /// Duplicates `opened` to a descriptor above the first three and closes it. -1 and errno if there is none.
    static int moveUp(int opened) noexcept
    {
        const int moved = ::fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int error = errno == EINVAL ? EMFILE : errno; // EINVAL: RLIMIT_NOFILE allows no number above them
        ::close(opened);
        errno = error;
        return moved;
    }

private:
    int fd;
};

} // namespace Zyr
