#include "store/archive/ArchiveFolder.h"

#include <cerrno>
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

std::error_code findArchives(const LogPlace& log, std::vector<FoundArchive>& found, CallWatch& watch)
{
    const auto close = [&watch](DIR* directory) { watch([&] { return ::closedir(directory), 0; }); };
    const std::unique_ptr<DIR, decltype(close)> directory(log.read(watch), close);
    if (!directory)
        return lastError();
    for (;;) {
        errno = 0;
        const dirent* const entry = watch([&] { return ::readdir(directory.get()); });
        if (!entry)
            return errno == 0 ? std::error_code() : lastError();
        if (const auto name = ArchiveName::parse(log.name(), entry->d_name))
            found.push_back({*name, isRegular(directory.get(), *entry, watch)});
    }
}

} // namespace Zyr
