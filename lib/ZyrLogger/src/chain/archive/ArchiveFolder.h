#pragma once

#include "chain/archive/ArchiveNames.h"
#include "chain/file/CallWatch.h"

#include <string>
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
std::error_code findArchives(const std::string& logPath, std::vector<FoundArchive>& found, CallWatch& watch);

/// Renames, but never onto a file that is there: std::errc::file_exists.
std::error_code renameToFree(const std::string& from, const std::string& to, CallWatch& watch);

} // namespace Zyr
