#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Zyr {

/// When the log file gives way to a new one.
struct RotationRule
{
    enum class Kind { Never, Size, Interval, TimeOfDay };

    Kind kind = Kind::Never;
    std::uint64_t size = 0;           ///< Size: a record that finds this many bytes or more goes to a new file
    std::chrono::seconds interval{0}; ///< Interval: up to 100 years
    std::optional<int> weekday;       ///< TimeOfDay: 0 is Sunday; every day without one
    std::optional<int> hour;          ///< TimeOfDay: every hour without one
    int minute = 0;                   ///< TimeOfDay

    bool operator==(const RotationRule&) const = default;
};

/// What the file channel's properties say, in the form in which the worker thread uses it.
struct FileSettings
{
    std::string path;
    RotationRule rotation;
    bool timestampedArchives = false; ///< else numbered
    bool localTimes = false;          ///< of rotation at a time of day and of time stamps in names; else UTC
    bool compress = false;
    std::optional<std::chrono::seconds> purgeAge; ///< up to 100 years
    std::optional<unsigned> purgeCount;           ///< at least 1
    bool flush = true;
    bool rotateOnOpen = false;

    bool operator==(const FileSettings&) const = default;
};

} // namespace Zyr
