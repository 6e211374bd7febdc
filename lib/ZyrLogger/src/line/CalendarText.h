#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace Zyr {

/// One second as the calendar has it, its numbers as digits. Each thread keeps the last one, since most records are of
/// the same second as the one before.
class CalendarText
{
public:
    /// In local time or UTC. Stays valid until the thread asks for another second. A change of the time zone shows from
    /// the next second on; where the second stays the same, since times are given, with the 32nd record at the latest.
    static const CalendarText& of(std::int64_t second, bool local) noexcept;

    std::string_view year() const noexcept { return {yearDigits, yearSize}; }
    std::string_view isoOffset() const noexcept { return {isoZone, isoZoneSize}; }
    std::string_view rfcOffset() const noexcept { return {rfcZone, rfcZoneSize}; }

    // Two digits each, the first of which may be 0.
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

    /// What a pattern shows of the second, kept as long as the second itself.
    struct Shown
    {
        static constexpr std::size_t room = 160;
        static constexpr std::size_t mostRuns = 7;

        std::size_t sizeOf(std::size_t run) const noexcept { return std::size_t(begins[run + 1] - begins[run]); }

        std::uint64_t pattern;             ///< its number; 0 while there is nothing
        std::uint8_t begins[mostRuns + 1]; ///< of the pieces of text, and the end of the last one
        char text[room + 16];              ///< and what is read behind it
    };
    Shown& shown() const noexcept { return shownOf; }

private:
    void render(bool local) noexcept;
    void renderDate(std::int64_t daysSinceEpoch) noexcept;
    void renderZone(std::int32_t offset) noexcept;

    std::int64_t second = std::numeric_limits<std::int64_t>::min(); // which no timestamp in microseconds reaches
    std::uint32_t zoneCheck = 0;
    std::uint8_t timesShown = 0;
    std::uint8_t yearSize = 0;
    std::uint8_t isoZoneSize = 0;
    std::uint8_t rfcZoneSize = 0;
    char yearDigits[8] = {};
    char isoZone[6] = {};
    char rfcZone[5] = {};

    mutable Shown shownOf = {}; // the thread's own, like all of this

    static thread_local CalendarText kept[2];
};

} // namespace Zyr
