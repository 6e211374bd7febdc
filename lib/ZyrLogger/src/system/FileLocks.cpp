// The locks by which several writers of one file coordinate.

#include "system/FileLocks.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

namespace Zyr::FileLocks {

namespace {

struct flock wholeFile(short kind) noexcept
{
    struct flock range = {};
    range.l_type = kind;
    range.l_whence = SEEK_SET;
    return range;
}

bool set(int file, short kind, CallWatch& watch) noexcept
{
    struct flock range = wholeFile(kind);
    return watch([&] { return ::fcntl(file, F_OFD_SETLK, &range); }) == 0 || (errno != EAGAIN && errno != EACCES);
}

} // namespace

bool own(int file, CallWatch& watch) noexcept
{
    return watch([&] { return ::flock(file, LOCK_EX | LOCK_NB); }) == 0 || errno != EWOULDBLOCK;
}

bool share(int file, CallWatch& watch) noexcept
{
    return set(file, F_RDLCK, watch);
}

bool exclude(int file, CallWatch& watch) noexcept
{
    return set(file, F_WRLCK, watch);
}

void release(int file, CallWatch& watch) noexcept
{
    set(file, F_UNLCK, watch);
}

bool isHeld(int file, CallWatch& watch) noexcept
{
    struct flock range = wholeFile(F_WRLCK);
    return watch([&] { return ::fcntl(file, F_OFD_GETLK, &range); }) == 0 && range.l_type != F_UNLCK;
}

} // namespace Zyr::FileLocks
