#pragma once

#include <string>

#include <sys/stat.h>

namespace Zyr {

/// Who holds the flock() lock of that file, as "process 4711 (pump)"; empty where the system does not tell. The lock
/// may by now be another process's, to which that one passed its descriptor on.
std::string lockHolder(const struct stat& file);

} // namespace Zyr
