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

/// All that is named as an archive of that log, in no order. One pass over the directory, which asks the file system
/// about single files only where it does not tell their kind there.
std::error_code findArchives(const LogPlace& log, std::vector<FoundArchive>& found, CallWatch& watch);

} // namespace Zyr
