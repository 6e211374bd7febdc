// A store that is slow, hangs or fails, for any program: to be linked first, or loaded with LD_PRELOAD.
//
// The variable BADSTORE_DIRECTORY names the directory below which files are affected, BADSTORE_ORDERS a file that is
// read again at each call and may have the line
//
//     <call> <milliseconds> <errno> <times>
//
// Such a call (write, which is writev as well, fdatasync, openat, renameat2, unlinkat, or any of them) takes that long,
// -1 being until the orders change, and then fails with that error, 0 being that it does what it should; 0 times means
// always, -2 every second time.

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <limits.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

int ordersFile = -1;
std::atomic<int> made = 0; // of the calls whose number is limited

[[gnu::constructor]] void readVariables()
{
    if (const char* const name = std::getenv("BADSTORE_ORDERS")) {
        const int file = int(::syscall(SYS_openat, AT_FDCWD, name, O_RDONLY | O_CLOEXEC));
        ordersFile = ::fcntl(file, F_DUPFD_CLOEXEC, 50); // out of the way of those that the program expects
        ::close(file);
    }
}

/// False when the call is to fail with errno.
bool obey(std::string_view call, const char* path)
{
    const char* const directory = std::getenv("BADSTORE_DIRECTORY");
    if (ordersFile < 0 || !directory || !std::string_view(path).starts_with(directory))
        return true;
    for (int waited = 0;; ++waited) {
        std::array<char, 100> text = {};
        [[maybe_unused]] const ssize_t size = ::pread(ordersFile, text.data(), text.size() - 1, 0);
        std::array<char, 100> name;
        int milliseconds = 0;
        int error = 0;
        int times = 0;
        if (std::sscanf(text.data(), "%99s %d %d %d", name.data(), &milliseconds, &error, &times) != 4 ||
            (call != name.data() && std::string_view(name.data()) != "any"))
            return true;
        if (milliseconds >= 0 && waited >= milliseconds) {
            errno = error;
            return error == 0 || (times > 0 && made++ >= times) || (times < 0 && made++ % -times != 0);
        }
        ::usleep(1000);
    }
}

/// `name`: in the directory `file`.
bool obey(std::string_view call, int file, const char* name = nullptr)
{
    std::array<char, 32> link;
    char path[2 * PATH_MAX] = {};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file);
    const int before = errno;
    const ssize_t size = ::readlink(link.data(), path, PATH_MAX);
    if (name)
        std::snprintf(path + (size < 0 ? 0 : size), PATH_MAX, "/%s", name);
    errno = before;
    return obey(call, path);
}

} // namespace

extern "C" {

ssize_t write(int file, const void* bytes, std::size_t count)
{
    return obey("write", file) ? ::syscall(SYS_write, file, bytes, count) : -1;
}

ssize_t writev(int file, const iovec* pieces, int count)
{
    return obey("write", file) ? ::syscall(SYS_writev, file, pieces, count) : -1;
}

int fdatasync(int file)
{
    return obey("fdatasync", file) ? int(::syscall(SYS_fdatasync, file)) : -1;
}

int openat(int directory, const char* name, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const unsigned mode = flags & O_CREAT ? va_arg(rest, unsigned) : 0;
    va_end(rest);
    return obey("openat", directory, name) ? int(::syscall(SYS_openat, directory, name, flags, mode)) : -1;
}

int renameat2(int from, const char* name, int to, const char* newName, unsigned flags) noexcept
{
    return obey("renameat2", from, name) ? int(::syscall(SYS_renameat2, from, name, to, newName, flags)) : -1;
}

int unlinkat(int directory, const char* name, int flags) noexcept
{
    return obey("unlinkat", directory, name) ? int(::syscall(SYS_unlinkat, directory, name, flags)) : -1;
}
}
