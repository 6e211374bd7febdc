#pragma once

#include "store/LogPlace.h"

#include <chrono>
#include <optional>

namespace Zyr {

/// When the current log file's interval began, stored in a hidden file beside it (`.app.log.since` for `app.log`), as
/// in the log itself every line is a record. For one thread; system calls go through the watch.
class IntervalStart
{
public:
    using Time = std::chrono::system_clock::time_point;

    explicit IntervalStart(CallWatch& callWatch)
        : watch(callWatch)
    {
    }

    /// In whole seconds. Nothing when the file is missing, unreadable or damaged, or its time is in the future.
    std::optional<Time> read(const LogPlace& log) const;

    /// Replaces the file atomically.
    bool write(const LogPlace& log, Time start) const;

    void remove(const LogPlace& log) const;

    /// For a log without such a file: its birth time, or the last write where the file system keeps no birth time.
    std::optional<Time> birthTimeOf(const LogPlace& log) const;

private:
    CallWatch& watch;
};

} // namespace Zyr
