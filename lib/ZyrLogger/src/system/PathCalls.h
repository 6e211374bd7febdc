#pragma once

#include "system/CallWatch.h"

#include <string>
#include <system_error>

#include <sys/stat.h>

namespace Zyr {

class TrustedPath;

/// Following a path to where it leads, under the watch.
namespace PathCalls {

std::error_code find(TrustedPath& where, const std::string& path, CallWatch& watch) noexcept;

/// Of what find() found. False and errno.
bool status(const TrustedPath& where, struct stat& found, CallWatch& watch) noexcept;

/// Of what the path leads to, for comparison only: it is told also while the descriptors or the memory are lacking that
/// following it with care takes.
std::error_code status(const std::string& path, struct stat& found, CallWatch& watch) noexcept;

} // namespace PathCalls

} // namespace Zyr
