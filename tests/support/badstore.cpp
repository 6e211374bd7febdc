// A store that is slow, hangs or fails, for any program: to be linked first, or loaded with LD_PRELOAD.
//
// The variable BADSTORE_DIRECTORY names the directory below which files are affected, BADSTORE_ORDERS a file that is
// read again at each call and has a line for each kind of call (write, fdatasync, open; writev and fsync count as the
// first two):
//
//     <call> <milliseconds> <errno> <times>
//
// Such a call takes that long, -1 being until the orders change, and then fails with that error, 0 being that it does
// what it should; 0 times means always.

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

using Text = std::array<char, 256>;

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
        Text text = {};
        [[maybe_unused]] const ssize_t size = ::pread(ordersFile, text.data(), text.size() - 1, 0);
        Text name;
        int milliseconds = 0;
        int error = 0;
        int times = 0;
        int length = 0;
        bool found = false;
        for (const char* line = text.data(); !found; line += length) {
            if (std::sscanf(line, " %255s %d %d %d%n", name.data(), &milliseconds, &error, &times, &length) != 4)
                return true;
            found = call == name.data();
        }
        if (milliseconds < 0 || waited < milliseconds) {
            ::usleep(1000);
            continue;
        }
        errno = error;
        return error == 0 || (times > 0 && made++ >= times);
    }
}

bool obey(std::string_view call, int file)
{
    Text link;
    char path[PATH_MAX] = {};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file);
    const int before = errno;
    if (::readlink(link.data(), path, sizeof path - 1) < 0)
        path[0] = '\0';
    errno = before;
    return obey(call, path);
}

template <typename Function>
Function* next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

ssize_t write(int file, const void* bytes, std::size_t count)
{
    static const auto real = next(&write, "write");
    return obey("write", file) ? real(file, bytes, count) : -1;
}

ssize_t writev(int file, const iovec* pieces, int count)
{
    static const auto real = next(&writev, "writev");
    return obey("write", file) ? real(file, pieces, count) : -1;
}

int fdatasync(int file)
{
    static const auto real = next(&fdatasync, "fdatasync");
    return obey("fdatasync", file) ? real(file) : -1;
}

int fsync(int file)
{
    static const auto real = next(&fsync, "fsync");
    return obey("fdatasync", file) ? real(file) : -1;
}

int open(const char* path, int flags, ...)
{
    static const auto real = next(&open, "open");
    std::va_list rest;
    va_start(rest, flags);
    const unsigned mode = flags & O_CREAT ? va_arg(rest, unsigned) : 0;
    va_end(rest);
    return obey("open", path) ? real(path, flags, mode) : -1;
}
}
