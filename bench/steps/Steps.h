// What the files of the program share.

#pragma once

#include "Loggers.h"

namespace Bench {

inline const Record::Lines lines;

/// The logger of that name, made with these settings when it is asked for first. It is then used by any thread.
Zyr::Logger& logger(const std::string& name, const std::string& settings = "");

/// With --dirty, what stands at the beginning of each step that is a way into the library's own code.
extern bool leavesDirty;
void useVectorRegisters() noexcept;
inline void leaveVectorRegistersDirty() noexcept
{
    if (leavesDirty)
        useVectorRegisters();
}

} // namespace Bench
