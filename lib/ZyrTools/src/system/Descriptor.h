#pragma once

#include <unistd.h>

#include <utility>

namespace Zyr {

/// Owns a file descriptor and closes it.
class Descriptor
{
public:
    explicit Descriptor(int opened = -1) noexcept
        : fd(opened)
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

private:
    int fd;
};

} // namespace Zyr
