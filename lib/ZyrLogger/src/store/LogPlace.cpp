#include "store/LogPlace.h"

#include "system/TrustedPath.h"

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

void copyAccess(const struct stat& from, int to, CallWatch& watch)
{
    if (watch([&] { return ::fchown(to, from.st_uid, from.st_gid); }) != 0)
        watch([&] { return ::fchown(to, uid_t(-1), from.st_gid); });
    struct stat made = {};
    mode_t mode = from.st_mode & 0777;
    if (watch([&] { return ::fstat(to, &made); }) != 0 || made.st_gid != from.st_gid)
        mode &= ~mode_t(S_IRWXG);
    watch([&] { return ::fchmod(to, mode); });
}

std::shared_ptr<const LogPlace> LogPlace::of(const TrustedPath& path, CallWatch& watch)
{
    const std::shared_ptr<LogPlace> place(new LogPlace);
    place->logName = path.name();
    // Opened once more as one that a forked child does not keep.
    if (!place->directory.open(path.directory(), ".", O_PATH | O_DIRECTORY, watch) ||
        watch([&] { return ::fstat(place->directory.get(), &place->identity); }) != 0)
        return nullptr;
    return place;
}

bool LogPlace::isSame(const LogPlace& other) const noexcept
{
    return identity.st_dev == other.identity.st_dev && identity.st_ino == other.identity.st_ino &&
           logName == other.logName;
}

bool LogPlace::open(const std::string& file, int flags, TrackedFile& opened, CallWatch& watch, mode_t mode) const
{
    return opened.open(directory.get(), file.c_str(), flags | O_NOFOLLOW, watch, mode);
}

bool LogPlace::status(const std::string& file, struct stat& found, CallWatch& watch) const
{
    return watch([&] { return ::fstatat(directory.get(), file.c_str(), &found, AT_SYMLINK_NOFOLLOW); }) == 0;
}

bool LogPlace::birth(const std::string& file, std::int64_t& seconds, CallWatch& watch) const
{
    struct statx found = {};
    constexpr unsigned wanted = STATX_BTIME | STATX_MTIME;
    if (watch([&] { return ::statx(directory.get(), file.c_str(), AT_SYMLINK_NOFOLLOW, wanted, &found); }) != 0)
        return false;
    seconds = found.stx_mask & STATX_BTIME ? found.stx_btime.tv_sec : found.stx_mtime.tv_sec;
    return true;
}

bool LogPlace::remove(const std::string& file, CallWatch& watch) const
{
    return watch([&] { return ::unlinkat(directory.get(), file.c_str(), 0); }) == 0;
}

bool LogPlace::renameAs(const std::string& from, const std::string& to, unsigned flags, CallWatch& watch) const
{
    const int both = directory.get();
    return watch([&] { return ::renameat2(both, from.c_str(), both, to.c_str(), flags); }) == 0;
}

std::error_code LogPlace::renameToFree(const std::string& from, const std::string& to, CallWatch& watch) const
{
    if (renameAs(from, to, RENAME_NOREPLACE, watch))
        return {};
    if (errno != EINVAL && errno != ENOSYS)
        return lastError();
    // A file system that cannot tell within the call.
    struct stat found = {};
    if (status(to, found, watch))
        return std::make_error_code(std::errc::file_exists);
    return errno == ENOENT && rename(from, to, watch) ? std::error_code() : lastError();
}

int LogPlace::openForReading(CallWatch& watch) const noexcept
{
    return watch([&] { return ::openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
}

std::error_code LogPlace::synchronize(CallWatch& watch) const noexcept
{
    using namespace std::chrono_literals;
    const int opened = openForReading(watch);
    if (opened < 0)
        return lastError();
    std::error_code error;
    if (watch([&] { return ::fsync(opened); }, 10s) != 0 && errno != EINVAL) // which not every file system has
        error = lastError();
    watch([&] { return ::close(opened), 0; });
    return error;
}

DIR* LogPlace::read(CallWatch& watch) const
{
    const int opened = openForReading(watch);
    DIR* const stream = opened >= 0 ? ::fdopendir(opened) : nullptr;
    if (!stream && opened >= 0) {
        const int error = errno;
        ::close(opened);
        errno = error;
    }
    return stream;
}

} // namespace Zyr
