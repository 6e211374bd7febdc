// The system calls on the names in a directory, with fallbacks for those that a file system lacks.

#include "system/Directory.h"

#include "system/FileCalls.h"
#include "system/TrustedPath.h"

#include <cerrno>
#include <chrono>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

namespace {

constexpr int always = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

/// Whether the file system or the kernel does not know the flags of a renameat2().
bool isUnknownRename() noexcept
{
    return errno == EINVAL || errno == ENOSYS;
}

} // namespace

bool Directory::hold(const TrustedPath& path, CallWatch& watch)
{
    // Opened anew as a ForkClosedFile: a forked child must not keep it.
    return directory.open(path.directory(), ".", O_PATH | O_DIRECTORY, watch) &&
           FileCalls::status(directory.get(), identity, watch);
}

bool Directory::isSame(const Directory& other) const noexcept
{
    return isSameFile(identity, other.identity);
}

bool Directory::open(const std::string& file, int flags, ForkClosedFile& opened, CallWatch& watch) const
{
    return opened.open(directory.get(), file.c_str(), flags | always, watch);
}

bool Directory::create(const std::string& file, Existing existing, ForkClosedFile& opened, CallWatch& watch,
                       mode_t mode) const
{
    const auto make = [&] {
        constexpr int flags = O_RDWR | O_APPEND | O_CREAT | O_EXCL | always;
        return opened.open(directory.get(), file.c_str(), flags, watch, mode);
    };
    return make() || (existing == Existing::Remove && errno == EEXIST && remove(file, watch) && make());
}

bool Directory::status(const std::string& file, struct stat& found, CallWatch& watch) const noexcept
{
    return watch([&] { return ::fstatat(directory.get(), file.c_str(), &found, AT_SYMLINK_NOFOLLOW); }) == 0;
}

bool Directory::birthTime(const std::string& file, std::int64_t& seconds, CallWatch& watch) const noexcept
{
    struct statx found = {};
    constexpr unsigned wanted = STATX_BTIME | STATX_MTIME;
    if (watch([&] { return ::statx(directory.get(), file.c_str(), AT_SYMLINK_NOFOLLOW, wanted, &found); }) != 0)
        return false;
    seconds = found.stx_mask & STATX_BTIME ? found.stx_btime.tv_sec : found.stx_mtime.tv_sec;
    return true;
}

bool Directory::remove(const std::string& file, CallWatch& watch) const noexcept
{
    return watch([&] { return ::unlinkat(directory.get(), file.c_str(), 0); }) == 0;
}

bool Directory::renameAs(const std::string& from, const std::string& to, unsigned flags,
                         CallWatch& watch) const noexcept
{
    const int both = directory.get();
    return watch([&] { return ::renameat2(both, from.c_str(), both, to.c_str(), flags); }) == 0;
}

bool Directory::rename(const std::string& from, const std::string& to, CallWatch& watch) const noexcept
{
    return renameAs(from, to, 0, watch);
}

std::error_code Directory::renameToFree(const std::string& from, const std::string& to, CallWatch& watch) const noexcept
{
    if (renameAs(from, to, RENAME_NOREPLACE, watch))
        return {};
    if (!isUnknownRename())
        return lastError();
    struct stat found = {};
    if (status(to, found, watch))
        return std::make_error_code(std::errc::file_exists);
    return errno == ENOENT && rename(from, to, watch) ? std::error_code() : lastError();
}

std::error_code Directory::replace(const std::string& file, const std::string& successor, const std::string& kept,
                                   CallWatch& watch) const noexcept
{
    if (renameAs(successor, file, RENAME_EXCHANGE, watch)) {
        const std::error_code error = renameToFree(successor, kept, watch);
        if (error)
            renameAs(successor, file, RENAME_EXCHANGE, watch);
        return error;
    }
    if (!isUnknownRename())
        return lastError();
    if (const std::error_code error = renameToFree(file, kept, watch))
        return error;
    const std::error_code error = renameToFree(successor, file, watch);
    if (error)
        renameToFree(kept, file, watch);
    return error;
}

int Directory::openToList(CallWatch& watch) const noexcept
{
    return watch([&] { return ::openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
}

std::error_code Directory::synchronize(CallWatch& watch) const noexcept
{
    const int opened = openToList(watch);
    if (opened < 0)
        return lastError();
    std::error_code error;
    // EINVAL: the file system cannot synchronize a directory.
    if (watch([&] { return ::fsync(opened); }, FileCalls::maxSyncTime) != 0 && errno != EINVAL)
        error = lastError();
    watch([&] { return ::close(opened), 0; });
    return error;
}

} // namespace Zyr
