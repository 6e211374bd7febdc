#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace Zyr {

/// Calendar date and time of day of one second, as digits. Each thread caches the last second, since most records are
/// of the same second as the one before.
class CalendarText
{
public:
    /// In local time or UTC. Valid until the thread asks for another second. A change of the time zone shows from the
    /// next second on; for records with one given time, with the 32nd at the latest.
    static const CalendarText& of(std::int64_t second, bool local) noexcept;

    std::string_view year() const noexcept { return {yearDigits, yearSize}; }
    std::string_view isoOffset() const noexcept { return {isoZone, isoZoneSize}; }
    std::string_view rfcOffset() const noexcept { return {rfcZone, rfcZoneSize}; }

    // Two digits each, with a leading zero.
    char yearOfCentury[2] = {};
    char month[2] = {};
    char day[2] = {};
    char hour[2] = {};
    char hourOfHalfDay[2] = {};
    char minute[2] = {};
    char secondOfMinute[2] = {};
    bool afternoon = false;
    std::uint8_t monthIndex = 0;
    std::uint8_t weekday = 0; ///< 0 is Sunday

    /// Cache of a pattern's time fields for this second.
    struct RunCache
    {
        static constexpr std::size_t room = 160;
        static constexpr std::size_t maxRuns = 7;

        std::size_t sizeOf(std::size_t run) const noexcept { return std::size_t(begins[run + 1] - begins[run]); }

        std::uint64_t pattern;            ///< its number; 0: empty
        std::uint8_t begins[maxRuns + 1]; ///< of the runs in `text`, and the end of the last one
        char text[room + 16];             ///< readers copy 16 bytes at once
    };
    RunCache& runCache() const noexcept { return runs; }

private:
    void render(bool local) noexcept;
    void renderDate(std::int64_t daysSinceEpoch) noexcept;
    void renderZone(std::int32_t offset) noexcept;

    std::int64_t second = std::numeric_limits<std::int64_t>::min(); // none: timestamps in microseconds do not reach it
    std::uint32_t zoneCheck = 0;
    std::uint8_t timesAsked = 0;
    std::uint8_t yearSize = 0;
    std::uint8_t isoZoneSize = 0;
    std::uint8_t rfcZoneSize = 0;
    char yearDigits[8] = {};
    char isoZone[6] = {};
    char rfcZone[5] = {};

    mutable RunCache runs = {}; // no lock: the whole object is the thread's own

    static thread_local CalendarText kept[2];
};

} // namespace Zyr
