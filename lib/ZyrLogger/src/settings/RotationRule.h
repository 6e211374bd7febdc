#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>

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

    /// The size, or the largest one where another rule, or none, is in use.
    std::uint64_t sizeLimit() const noexcept
    {
        return kind == Kind::Size ? size : std::numeric_limits<std::uint64_t>::max();
    }
    /// Whether the begin of the file outlives the process, in a file beside the log.
    bool keepsStart() const noexcept { return kind == Kind::Interval; }

    bool operator==(const RotationRule&) const = default;
};

} // namespace Zyr
