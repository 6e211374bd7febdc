// Finds the archives of a log in its directory.

#include "store/archive/ArchiveFolder.h"

#include "system/DirectoryEntries.h"

namespace Zyr {

std::error_code findArchives(const LogPlace& log, std::vector<FoundArchive>& found, CallWatch& watch)
{
    DirectoryEntries entries(log, watch);
    while (entries.next()) {
        if (const auto name = ArchiveName::parse(log.name(), entries.name()))
            found.push_back({*name, entries.isRegular()});
    }
    return entries.error();
}

} // namespace Zyr
