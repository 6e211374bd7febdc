// The calendar date and time of day of a second, rendered once for all records of that second on a thread.

#include "line/CalendarText.h"

#include "base/LocalTime.h"

#include <charconv>
#include <cstdlib>
#include <iterator>

namespace Zyr {

namespace {

constexpr std::int64_t secondsPerDay = 24 * 60 * 60;

constexpr std::int64_t floorDivide(std::int64_t number, std::int64_t divisor)
{
    return number / divisor - (number % divisor < 0 ? 1 : 0);
}

void putTwoDigits(char* to, std::int64_t number) noexcept
{
    to[0] = char('0' + number / 10);
    to[1] = char('0' + number % 10);
}

constexpr std::uint8_t checkInterval = 32;

} // namespace

// Plain data, with nothing to construct or destroy when a thread starts or ends.
constinit thread_local CalendarText CalendarText::kept[2];

const CalendarText& CalendarText::of(std::int64_t second, bool local) noexcept
{
    CalendarText& text = kept[local];
    // Records of one second are mostly made within it. Records with given times may share one for long, so the zone is
    // checked every so often.
    if (text.second == second && ++text.timesAsked % checkInterval != 0)
        return text;
    const std::uint32_t check = local ? LocalTime::checkZone() : 0;
    if (text.second != second || text.zoneCheck != check) {
        text.second = second;
        text.zoneCheck = check;
        text.render(local);
    }
    return text;
}

void CalendarText::render(bool local) noexcept
{
    runs.pattern = 0;
    const std::int32_t offset = local ? LocalTime::offsetAt(second) : 0;
    if (local) {
        renderZone(offset);
    } else {
        isoZoneSize = std::uint8_t(std::string_view("Z").copy(isoZone, sizeof isoZone));
        rfcZoneSize = std::uint8_t(std::string_view("GMT").copy(rfcZone, sizeof rfcZone));
    }

    const std::int64_t shown = second + offset;
    const std::int64_t days = floorDivide(shown, secondsPerDay);
    const auto time = int(shown - days * secondsPerDay);
    const int hours = time / 3600;
    afternoon = hours >= 12;
    putTwoDigits(hour, hours);
    putTwoDigits(hourOfHalfDay, (hours + 11) % 12 + 1);
    putTwoDigits(minute, time / 60 % 60);
    putTwoDigits(secondOfMinute, time % 60);
    renderDate(days);
}

/// The Gregorian date, from eras of 400 years. Years begin on 1 March here, so that a leap day is a year's last.
void CalendarText::renderDate(std::int64_t daysSinceEpoch) noexcept
{
    constexpr std::int64_t daysPerEra = 146097;
    weekday = std::uint8_t(((daysSinceEpoch + 4) % 7 + 7) % 7); // the epoch was a Thursday

    const std::int64_t days = daysSinceEpoch + 719468; // since 1 March of year 0
    const std::int64_t era = floorDivide(days, daysPerEra);
    const auto dayOfEra = int(days - era * daysPerEra);
    const int yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int monthFromMarch = (5 * dayOfYear + 2) / 153;
    monthIndex = std::uint8_t((monthFromMarch + 2) % 12);
    const std::int64_t year = 400 * era + yearOfEra + (monthIndex < 2 ? 1 : 0);

    putTwoDigits(day, dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
    putTwoDigits(month, monthIndex + 1);
    putTwoDigits(yearOfCentury, std::abs(year % 100));
    char* to = yearDigits;
    if (year < 0)
        *to++ = '-';
    for (std::int64_t bound = 1000; bound > 1 && std::abs(year) < bound; bound /= 10)
        *to++ = '0';
    to = std::to_chars(to, std::end(yearDigits), std::abs(year)).ptr;
    yearSize = std::uint8_t(to - yearDigits);
}

void CalendarText::renderZone(std::int32_t offset) noexcept
{
    const int minutes = std::abs(offset) / 60;
    isoZone[0] = rfcZone[0] = offset < 0 ? '-' : '+';
    putTwoDigits(isoZone + 1, minutes / 60);
    putTwoDigits(rfcZone + 1, minutes / 60);
    isoZone[3] = ':';
    putTwoDigits(isoZone + 4, minutes % 60);
    putTwoDigits(rfcZone + 3, minutes % 60);
    isoZoneSize = sizeof isoZone;
    rfcZoneSize = sizeof rfcZone;
}

} // namespace Zyr
