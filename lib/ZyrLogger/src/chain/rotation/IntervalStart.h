#pragma once

#include "chain/file/CallWatch.h"

#include <chrono>
#include <optional>
#include <string>

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
    std::optional<Time> read(const std::string& logPath) const;

    /// Replaces the file at once, so that nobody reads half of it.
    bool write(const std::string& logPath, Time start) const;

    void remove(const std::string& logPath) const;

    /// For a log that has no such file: when it was made, or last written where the file system does not keep that.
    std::optional<Time> birthOf(const std::string& logPath) const;

private:
    CallWatch& watch;
};

} // namespace Zyr
