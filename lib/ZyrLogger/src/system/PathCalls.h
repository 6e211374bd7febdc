#pragma once

#include "system/CallWatch.h"

#include <string>
#include <system_error>

#include <sys/stat.h>

namespace Zyr {

class TrustedPath;

/// Resolving paths under the watch.
namespace PathCalls {

std::error_code find(TrustedPath& realPath, const std::string& path, CallWatch& watch) noexcept;

/// Of the file that find() found. False with errno.
bool status(const TrustedPath& realPath, struct stat& found, CallWatch& watch) noexcept;

/// Of the file that the path leads to, for comparison only. Works also while descriptors or memory for TrustedPath are
/// lacking.
std::error_code status(const std::string& path, struct stat& found, CallWatch& watch) noexcept;

} // namespace PathCalls

} // namespace Zyr
