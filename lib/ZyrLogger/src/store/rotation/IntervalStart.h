#pragma once

#include "store/LogPlace.h"

#include <chrono>
#include <optional>

namespace Zyr {

/// When the present log file's interval began, kept in a hidden file beside it (`.app.log.since` for `app.log`), since
/// in the log itself every line is a record. For one thread; system calls go through the watch.
class IntervalStart
{
public:
    using Time = std::chrono::system_clock::time_point;

    explicit IntervalStart(CallWatch& callWatch)
        : watch(callWatch)
    {
    }

    /// In whole seconds. Nothing when the file is missing, unreadable or damaged, or names a time that is yet to come.
    std::optional<Time> read(const LogPlace& log) const;

    /// Replaces the file at once, so that nobody reads half of it.
    bool write(const LogPlace& log, Time start) const;

    void remove(const LogPlace& log) const;

    /// For a log that has no such file: when it was made, or last written where the file system does not keep that.
    std::optional<Time> birthOf(const LogPlace& log) const;

private:
    CallWatch& watch;
};

} // namespace Zyr
