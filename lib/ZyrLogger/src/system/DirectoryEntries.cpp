// One pass over a directory's entries, each call of which may hang with the file system.

#include "system/DirectoryEntries.h"

#include "system/Directory.h"
#include "system/FileCalls.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zyr {

DirectoryEntries::DirectoryEntries(const Directory& directory, CallWatch& itsWatch) noexcept
    : watch(itsWatch)
{
    const int opened = directory.openToList(watch);
    if (opened >= 0)
        stream = ::fdopendir(opened);
    if (stream)
        return;
    failure = lastError();
    if (opened >= 0)
        watch([&] { return ::close(opened), 0; });
}

DirectoryEntries::~DirectoryEntries()
{
    if (stream)
        watch([&] { return ::closedir(stream), 0; });
}

bool DirectoryEntries::next() noexcept
{
    if (!stream)
        return false;
    errno = 0;
    entry = watch([&] { return ::readdir(stream); });
    if (!entry && errno != 0)
        failure = lastError();
    return entry;
}

bool DirectoryEntries::isRegular() const noexcept
{
    if (entry->d_type != DT_UNKNOWN)
        return entry->d_type == DT_REG;
    struct stat found = {};
    return watch([&] { return ::fstatat(::dirfd(stream), entry->d_name, &found, AT_SYMLINK_NOFOLLOW); }) == 0 &&
           S_ISREG(found.st_mode);
}

} // namespace Zyr
