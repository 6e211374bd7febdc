#pragma once

#include "store/LogPlace.h"
#include "store/archive/ArchiveNames.h"

#include <system_error>
#include <vector>

namespace Zyr {

struct FoundArchive
{
    ArchiveName name;
    bool regular = true;
};

/// Everything that is named as an archive of that log, unordered, in one pass over the directory. Single files cost a
/// system call only where the directory does not hold their types.
std::error_code findArchives(const LogPlace& log, std::vector<FoundArchive>& found, CallWatch& watch);

} // namespace Zyr
