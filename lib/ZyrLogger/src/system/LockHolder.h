#pragma once

#include <string>

#include <sys/stat.h>

namespace Zyr {

/// The holder of that file's flock() lock, as "process 4711 (pump)"; empty where the system does not tell. It is the
/// process that took the lock; another one may have inherited the descriptor.
std::string lockHolder(const struct stat& file);

} // namespace Zyr
