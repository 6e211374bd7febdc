// Makes a store slow, hang, fail or lack calls, for any program: to be linked first, or loaded with LD_PRELOAD.
//
// The variable BADSTORE_DIRECTORY names the directory below which files are affected, BADSTORE_ORDERS a file that is
// read again at each call and may have the line
//
//     <call>[,<call>]... <milliseconds> <errno> <times>
//
// Each of those calls takes that long (-1: until the orders change) and then fails with that error (0: succeeds), for
// that many times (0: always, -2: every second time). They are named as in the manual pages, except
//
//     write                        writev, too
//     rename, noreplace, exchange  renameat2, by its flags
//     ofdlock, lease               fcntl, for open file description locks and for leases
//     birth                        statx, which succeeds without a birth time
//     readdir                      succeeds without the entries' types
//     memfd_create                 independent of the directory

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

std::atomic<int> made = 0; // calls so far whose number is limited

int openOrders()
{
    const char* const name = std::getenv("BADSTORE_ORDERS");
    const int file = name ? int(::syscall(SYS_openat, AT_FDCWD, name, O_RDONLY | O_CLOEXEC)) : -1;
    const int moved = ::fcntl(file, F_DUPFD_CLOEXEC, 50); // leaves the program the numbers that it expects
    ::close(file);
    return moved;
}

bool isNamed(std::string_view call, std::string_view names)
{
    for (std::size_t end = 0; end != names.npos; names.remove_prefix(end == names.npos ? 0 : end + 1)) {
        end = names.find(',');
        if (names.substr(0, end) == call)
            return true;
    }
    return false;
}

/// False when the call is to fail with errno.
bool obey(std::string_view call, const char* path)
{
    const char* const directory = std::getenv("BADSTORE_DIRECTORY");
    if (!directory || !std::string_view(path).starts_with(directory))
        return true;
    static const int ordersFile = openOrders(); // only now, so that a test can set the variable first
    const int before = errno;
    for (int waited = 0;; ++waited) {
        std::array<char, 100> text = {};
        [[maybe_unused]] const ssize_t size = ::pread(ordersFile, text.data(), text.size() - 1, 0);
        std::array<char, 100> name;
        int milliseconds = 0;
        int error = 0;
        int times = 0;
        if (std::sscanf(text.data(), "%99s %d %d %d", name.data(), &milliseconds, &error, &times) != 4 ||
            !isNamed(call, name.data())) {
            errno = before;
            return true;
        }
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
    const char* const call = flags & RENAME_EXCHANGE ? "exchange" : flags & RENAME_NOREPLACE ? "noreplace" : "rename";
    return obey(call, from, name) ? int(::syscall(SYS_renameat2, from, name, to, newName, flags)) : -1;
}

int linkat(int from, const char* name, int to, const char* newName, int flags) noexcept
{
    return obey("linkat", from, name) ? int(::syscall(SYS_linkat, from, name, to, newName, flags)) : -1;
}

int fsync(int file)
{
    return obey("fsync", file) ? int(::syscall(SYS_fsync, file)) : -1;
}

int flock(int file, int operation) noexcept
{
    return obey("flock", file) ? int(::syscall(SYS_flock, file, operation)) : -1;
}

int fcntl(int file, int command, ...)
{
#ifdef SYS_fcntl64
    constexpr long number = SYS_fcntl64;
#else
    constexpr long number = SYS_fcntl;
#endif
    va_list rest;
    va_start(rest, command);
    const unsigned long argument = va_arg(rest, unsigned long);
    va_end(rest);
    const bool isLock = command == F_OFD_SETLK || command == F_OFD_GETLK;
    if ((isLock && !obey("ofdlock", file)) || (command == F_SETLEASE && !obey("lease", file)))
        return -1;
    return int(::syscall(number, file, command, argument));
}

int statx(int directory, const char* name, int flags, unsigned mask, struct statx* found) noexcept
{
    if (!obey("statx", directory, name) || ::syscall(SYS_statx, directory, name, flags, mask, found) != 0)
        return -1;
    if (!obey("birth", directory, name)) {
        found->stx_mask &= ~STATX_BTIME;
        found->stx_btime = {};
    }
    return 0;
}

ssize_t fgetxattr(int file, const char* name, void* value, std::size_t size) noexcept
{
    return obey("fgetxattr", file) ? ::syscall(SYS_fgetxattr, file, name, value, size) : -1;
}

dirent* readdir(DIR* directory)
{
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(::dlsym(RTLD_NEXT, "readdir64"));
    dirent* const entry = next(directory);
    if (entry && !obey("readdir", ::dirfd(directory)))
        entry->d_type = DT_UNKNOWN;
    return entry;
}

int memfd_create(const char* name, unsigned flags) noexcept
{
    const char* const directory = std::getenv("BADSTORE_DIRECTORY");
    return obey("memfd_create", directory ? directory : "") ? int(::syscall(SYS_memfd_create, name, flags)) : -1;
}

int unlinkat(int directory, const char* name, int flags) noexcept
{
    return obey("unlinkat", directory, name) ? int(::syscall(SYS_unlinkat, directory, name, flags)) : -1;
}
}
