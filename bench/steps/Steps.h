// What the files of the program share.

#pragma once

#include "Loggers.h"

namespace Bench {

inline const Record::Lines lines;

/// The logger of that name, made with these settings when it is asked for first. It is then used by any thread.
Zyr::Logger& logger(const std::string& name, const std::string& settings = "");

} // namespace Bench
