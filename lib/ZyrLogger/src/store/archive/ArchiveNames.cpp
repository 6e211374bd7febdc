// The names of archives, from which their order and age follow.

#include "store/archive/ArchiveNames.h"

#include "base/LocalTime.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <tuple>

namespace Zyr {

namespace {

using namespace std::chrono;

constexpr std::size_t stampDigits = 17;
constexpr std::size_t wholeSecondDigits = 14;
constexpr std::size_t maxNumberDigits = 9;

/// Date and time of day, in any time zone.
using CalendarTime = sys_time<milliseconds>;

/// Takes the leading decimal digits off `text`.
std::string_view takeDigits(std::string_view& text)
{
    const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
    const std::string_view digits = text.substr(0, count);
    text.remove_prefix(count);
    return digits;
}

template <typename Number>
Number toNumber(std::string_view digits)
{
    Number number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

std::optional<std::int32_t> parseNumber(std::string_view digits)
{
    if (digits.empty() || digits.size() > maxNumberDigits || (digits.size() > 1 && digits.front() == '0'))
        return std::nullopt;
    return toNumber<std::int32_t>(digits);
}

/// Nothing when there is no such date or time of day. The year 9999 is not accepted, so that every stamp has a
/// successor.
std::optional<CalendarTime> toCalendar(std::uint64_t stamp)
{
    const auto take = [&](unsigned base) {
        const auto low = unsigned(stamp % base);
        stamp /= base;
        return low;
    };
    const milliseconds millisecond(take(1000));
    const seconds second(take(100));
    const minutes minute(take(100));
    const hours hour(take(100));
    const day dayOfMonth(take(100));
    const month monthOfYear(take(100));
    const year_month_day date(year(int(stamp)), monthOfYear, dayOfMonth);
    if (stamp >= 9999 || !date.ok() || hour > 23h || minute > 59min || second > 60s) // 60: a leap second
        return std::nullopt;
    return sys_days(date) + hour + minute + second + millisecond;
}

std::uint64_t toStamp(CalendarTime time)
{
    const auto midnight = floor<days>(time);
    const year_month_day date(midnight);
    const hh_mm_ss clock(time - midnight);
    std::uint64_t stamp = std::uint64_t(int(date.year()));
    const auto append = [&](unsigned base, auto value) { stamp = stamp * base + std::uint64_t(value); };
    append(100, unsigned(date.month()));
    append(100, unsigned(date.day()));
    append(100, clock.hours().count());
    append(100, clock.minutes().count());
    append(100, clock.seconds().count());
    append(1000, clock.subseconds().count());
    return stamp;
}

} // namespace

std::optional<ArchiveName> ArchiveName::parse(std::string_view logName, std::string_view fileName)
{
    if (!fileName.starts_with(logName))
        return std::nullopt;
    std::string_view rest = fileName.substr(logName.size());
    ArchiveName name;
    if (rest.ends_with(gzipEnding)) {
        name.gzipped = true;
        rest.remove_suffix(gzipEnding.size());
    }
    const auto takePart = [&rest] {
        if (!rest.starts_with('.'))
            return std::string_view();
        rest.remove_prefix(1);
        return takeDigits(rest);
    };

    std::string_view digits = takePart();
    if (digits.size() == stampDigits || digits.size() == wholeSecondDigits) {
        name.wholeSeconds = digits.size() == wholeSecondDigits;
        name.stamp = toNumber<std::uint64_t>(digits) * (name.wholeSeconds ? 1000 : 1);
        if (name.stamp == 0 || !toCalendar(name.stamp))
            return std::nullopt;
        if (rest.empty())
            return name;
        digits = takePart();
    }
    const auto number = parseNumber(digits);
    if (!number || !rest.empty())
        return std::nullopt;
    name.number = *number;
    return name;
}

std::string ArchiveName::suffix() const
{
    char text[48];
    std::size_t size = 0;
    const auto append = [&](const char* format, auto... values) {
        size += std::size_t(std::snprintf(text + size, sizeof text - size, format, values...));
    };
    if (isTimestamped())
        append(".%0*llu", int(wholeSeconds ? wholeSecondDigits : stampDigits),
               static_cast<unsigned long long>(wholeSeconds ? stamp / 1000 : stamp));
    if (number >= 0)
        append(".%d", int(number));
    if (gzipped)
        append("%s", gzipEnding.data());
    return std::string(text, size);
}

ArchiveName ArchiveName::as(bool asGzipped) const noexcept
{
    ArchiveName other = *this;
    other.gzipped = asGzipped;
    return other;
}

bool ArchiveName::isNewerThan(const ArchiveName& other) const noexcept
{
    return std::tie(other.stamp, number, wholeSeconds) < std::tie(stamp, other.number, other.wholeSeconds);
}

std::uint64_t ArchiveStamp::of(Time time, bool local) noexcept
{
    auto shown = floor<milliseconds>(time);
    if (local)
        shown += seconds(LocalTime::offsetAt(floor<seconds>(time).time_since_epoch().count()));
    return toStamp(shown);
}

std::uint64_t ArchiveStamp::after(std::uint64_t stamp) noexcept
{
    const auto shown = toCalendar(stamp);
    return shown ? toStamp(*shown + 1ms) : stamp + 1;
}

} // namespace Zyr
