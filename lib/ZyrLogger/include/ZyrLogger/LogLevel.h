#pragma once

namespace Zyr {

/// Level of a log message. Converts to `unsigned char` without a cast; any other 8-bit number is legal too and is
/// written as an unknown level, with the highest priority.
enum LogLevel : unsigned char {
    Emerg = 0, ///< the only level whose text names the source file and line
    Alert = 1,
    Critical = 2,
    Error = 3,
    Warning = 4,
    Notice = 5,
    Info = 6,
    Debug = 7,
    Trace = 8,
    System = 11, ///< life of the application itself; priority of Notice, marked "<SYS> "
    Todo = 12,   ///< priority of Debug, marked "<TODO> "
};

/// The priority a level is written with: POCO's number, from 1 (fatal) to 8 (trace).
constexpr int priorityOf(unsigned char level) noexcept
{
    if (level == System)
        return Notice;
    if (level == Todo)
        return Debug;
    // From Critical to Trace a level's number is its priority.
    return level >= Critical && level <= Trace ? level : 1;
}

} // namespace Zyr
