#pragma once

#include "chain/file/CallWatch.h"

#include <string>
#include <system_error>

namespace Zyr {

/// Where the file of that path really lies, behind all links; empty when it cannot be told or the path leads to a
/// descriptor of a process, as /dev/stdout does: such a file is not ours to move.
std::string realPlace(const std::string& path, CallWatch& watch);

std::string directoryOf(const std::string& path);

/// Puts the names in that file's directory on the disk.
std::error_code synchronizeDirectory(const std::string& path, CallWatch& watch);

/// The hidden file beside a log: ".app.log.next" for "app.log" and ".next".
std::string besideLog(const std::string& logPath, const char* suffix);

} // namespace Zyr
