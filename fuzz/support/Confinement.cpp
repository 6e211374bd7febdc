// Defines the calls that change files anew, and ends the program when one is made outside the directory.

// With these, the headers would rename open() to open64() and so on, but both names are defined here.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "Confinement.h"

#include "Check.h"

#include <array>
#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constinit std::string_view confinedTo;
constinit std::atomic<bool> confined = false;

bool isAtOrBelow(std::string_view path, std::string_view directory)
{
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

bool isInside(std::string_view path)
{
    if (path.starts_with("../") || path.ends_with("/..") || path.find("/../") != path.npos)
        return false;
    // A name below /dev/null cannot become a file.
    return !path.starts_with('/') || isAtOrBelow(path, confinedTo) || isAtOrBelow(path, "/dev/null");
}

void checkPlace(const char* path)
{
    check(!confined || isInside(path), "No file is touched outside the scratch directory", path);
}

/// The same for a name in an open directory.
void checkPlace(int directory, const char* name)
{
    if (!confined || directory == AT_FDCWD || *name == '/')
        return checkPlace(name);
    std::array<char, 32> link;
    std::array<char, 2 * PATH_MAX> path;
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", directory);
    const ssize_t size = ::readlink(link.data(), path.data(), PATH_MAX);
    check(size > 0, "A directory that is used is open", name);
    std::snprintf(path.data() + size, PATH_MAX, "/%s", name);
    checkPlace(path.data());
}

void checkOpen(int directory, const char* path, int flags)
{
    if ((flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0)
        checkPlace(directory, path);
}

mode_t modeOf(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

} // namespace

Confinement::Confinement(const QByteArray& directory)
{
    confinedTo = std::string_view(directory.constData(), std::size_t(directory.size()));
    confined = true;
}

Confinement::~Confinement()
{
    confined = false;
}

// Replace the C library's functions, for Qt and POCO too. libFuzzer accesses its own files by others.
extern "C" {

int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    checkOpen(AT_FDCWD, path, flags);
    return int(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return open(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    checkOpen(directory, path, flags);
    return int(::syscall(SYS_openat, directory, path, flags, mode));
}

int openat64(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openat(directory, path, flags, mode);
}

int mkdir(const char* path, mode_t mode) noexcept
{
    checkPlace(path);
    return int(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

int mkdirat(int directory, const char* path, mode_t mode) noexcept
{
    checkPlace(directory, path);
    return int(::syscall(SYS_mkdirat, directory, path, mode));
}

int rename(const char* from, const char* to) noexcept
{
    checkPlace(from);
    checkPlace(to);
    return int(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags) noexcept
{
    checkPlace(fromDirectory, from);
    checkPlace(toDirectory, to);
    return int(::syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, flags));
}

int link(const char* from, const char* to) noexcept
{
    checkPlace(from); // it could be written through its new name
    checkPlace(to);
    return int(::syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int linkat(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept
{
    // A file opened with O_TMPFILE gets its name through its descriptor.
    if (!std::string_view(from).starts_with("/proc/self/fd/"))
        checkPlace(fromDirectory, from);
    checkPlace(toDirectory, to);
    return int(::syscall(SYS_linkat, fromDirectory, from, toDirectory, to, flags));
}

int unlink(const char* path) noexcept
{
    checkPlace(path);
    return int(::syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

int unlinkat(int directory, const char* path, int flags) noexcept
{
    checkPlace(directory, path);
    return int(::syscall(SYS_unlinkat, directory, path, flags));
}
}
