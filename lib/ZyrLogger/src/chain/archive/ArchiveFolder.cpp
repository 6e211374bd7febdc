#include "chain/archive/ArchiveFolder.h"

#include "chain/file/AppendFile.h"
#include "chain/file/Place.h"

#include <cerrno>
#include <cstdio>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace Zyr {

namespace {

bool isRegular(DIR* directory, const dirent& entry, CallWatch& watch)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_REG;
    struct stat status = {};
    const int file = ::dirfd(directory);
    return watch([&] { return ::fstatat(file, entry.d_name, &status, AT_SYMLINK_NOFOLLOW); }) == 0 &&
           S_ISREG(status.st_mode);
}

} // namespace

std::error_code findArchives(const std::string& logPath, std::vector<FoundArchive>& found, CallWatch& watch)
{
    const std::string path = directoryOf(logPath);
    const std::string_view logName = std::string_view(logPath).substr(logPath.rfind('/') + 1);
    const auto close = [&watch](DIR* directory) { watch([&] { return ::closedir(directory); }); };
    const std::unique_ptr<DIR, decltype(close)> directory(watch([&] { return ::opendir(path.c_str()); }), close);
    if (!directory)
        return lastError();
    for (;;) {
        errno = 0;
        const dirent* const entry = watch([&] { return ::readdir(directory.get()); });
        if (!entry)
            return errno == 0 ? std::error_code() : lastError();
        if (const auto name = ArchiveName::parse(logName, entry->d_name))
            found.push_back({*name, isRegular(directory.get(), *entry, watch)});
    }
}

std::error_code renameToFree(const std::string& from, const std::string& to, CallWatch& watch)
{
    const char* const old = from.c_str();
    const char* const wanted = to.c_str();
    if (watch([&] { return ::renameat2(AT_FDCWD, old, AT_FDCWD, wanted, RENAME_NOREPLACE); }) == 0)
        return {};
    if (errno != EINVAL && errno != ENOSYS)
        return lastError();
    // A file system that cannot tell within the call.
    struct stat status = {};
    if (watch([&] { return ::lstat(wanted, &status); }) == 0)
        return std::make_error_code(std::errc::file_exists);
    if (errno != ENOENT || watch([&] { return ::rename(old, wanted); }) != 0)
        return lastError();
    return {};
}

} // namespace Zyr
