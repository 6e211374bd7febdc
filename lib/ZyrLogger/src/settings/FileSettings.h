#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Zyr {

/// When the log file is rotated.
struct RotationRule
{
    enum class Kind { Never, Size, Interval, TimeOfDay };

    Kind kind = Kind::Never;
    std::uint64_t size = 0;           ///< Size: rotated before a record if it has this many bytes or more
    std::chrono::seconds interval{0}; ///< Interval: up to 100 years
    std::optional<int> weekday;       ///< TimeOfDay: 0 is Sunday; every day without one
    std::optional<int> hour;          ///< TimeOfDay: every hour without one
    int minute = 0;                   ///< TimeOfDay

    bool operator==(const RotationRule&) const = default;
};

/// The file channel's properties, parsed for the worker thread.
struct FileSettings
{
    std::string path;
    RotationRule rotation;
    bool timestampedArchives = false; ///< else numbered
    bool localTimes = false;          ///< for rotation at a time of day and in archive names; else UTC
    bool compress = false;
    std::optional<std::chrono::seconds> purgeAge; ///< up to 100 years
    std::optional<unsigned> purgeCount;           ///< at least 1
    bool flush = true;
    bool rotateOnOpen = false;

    bool operator==(const FileSettings&) const = default;
};

} // namespace Zyr
