#pragma once

/// Everything of the logging library and of its tools.
namespace Zyr {

/// Level of a log message, and its name in the file unless the setting `priorityNames` says otherwise.
///
/// Converts to `unsigned char` without a cast; any other 8-bit number is legal too and is written as an unknown level,
/// with the highest priority.
enum LogLevel : unsigned char {
    Emerg = 0,    ///< `fatal`, with source file and line behind the text
    Alert = 1,    ///< `fatal`
    Critical = 2, ///< `panic`
    Error = 3,    ///< `error`
    Warning = 4,  ///< `warn`
    Notice = 5,   ///< `notice`
    Info = 6,     ///< `info`; the least important one that is written unless the setting `level` says otherwise
    Debug = 7,    ///< `debug`
    Trace = 8,    ///< `trace`
    System = 11,  ///< `notice`, marked `<SYS>`: life of the application itself
    Todo = 12,    ///< `debug`, marked `<TODO>`
};

/// The priority a level is written with: POCO's number, from 1 (fatal) to 8 (trace). An entry is written unless this is
/// above the number of the setting `level`.
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
