// The syntax of the property "rotation", and of the times that it shares with "purgeAge".

#include "settings/RotationText.h"

#include "settings/ByteSize.h"
#include "settings/Quantity.h"

#include <Poco/DateTimeFormat.h>
#include <Poco/Exception.h>
#include <Poco/String.h>

#include <algorithm>
#include <climits>
#include <string_view>
#include <utility>

namespace Zyr {

namespace {

using std::chrono::seconds;
using Kind = RotationRule::Kind;

constexpr seconds minute(60), hour = 60 * minute, day = 24 * hour, week = 7 * day, month = 30 * day;
constexpr seconds maxSpan = 36525 * day;

template <typename Refusal>
[[noreturn]] void refuse(const std::string& text)
{
    throw Refusal("rotation '" + text +
                  "': legal are never, [day,][hh]:mm with hours up to 23 and minutes up to 59, daily, weekly, monthly, "
                  "<n> seconds, minutes, hours, days, weeks or months, and the sizes <n>, <n> K and <n> M; " +
                  numberRange + " but in sizes");
}

/// Like POCO takes any beginning of the name, of at least three letters, whatever their case.
std::optional<int> parseWeekday(std::string_view name)
{
    for (int i = 0; name.size() >= 3 && i < 7; ++i) {
        if (Poco::icompare(Poco::DateTimeFormat::WEEKDAY_NAMES[i].substr(0, name.size()), std::string(name)) == 0)
            return i;
    }
    return {};
}

/// Of `part` of the time of day `text`, a number below `limit`.
int parseNumber(const std::string& text, std::string_view part, std::uint64_t limit)
{
    const std::optional<Quantity> value = Quantity::parse(part);
    if (!value || !value->number || !value->unit.empty())
        refuse<Poco::SyntaxException>(text);
    if (*value->number >= limit)
        refuse<Poco::InvalidArgumentException>(text);
    return static_cast<int>(*value->number);
}

/// Like POCO takes a colon or a comma after the weekday.
RotationRule parseTimeOfDay(const std::string& text)
{
    const std::string_view whole = text;
    const auto colon = whole.rfind(':');
    if (colon == whole.npos || trimmed(whole.substr(colon + 1)).empty())
        refuse<Poco::InvalidArgumentException>(text);
    const std::string_view beforeMinute = whole.substr(0, colon);
    const auto separator = beforeMinute.find_first_of(",:");
    const auto hourAt = separator == whole.npos ? 0 : separator + 1;
    const std::string_view weekdayPart = trimmed(beforeMinute.substr(0, hourAt == 0 ? 0 : separator));
    const std::string_view hourPart = trimmed(beforeMinute.substr(hourAt));
    if (hourPart.find_first_of(",:") != whole.npos)
        refuse<Poco::InvalidArgumentException>(text);

    RotationRule rule;
    rule.kind = Kind::TimeOfDay;
    rule.minute = parseNumber(text, whole.substr(colon + 1), 60);
    if (!hourPart.empty())
        rule.hour = parseNumber(text, hourPart, 24);
    if (!weekdayPart.empty()) {
        rule.weekday = parseWeekday(weekdayPart);
        if (!rule.weekday)
            refuse<Poco::SyntaxException>(text);
    }
    return rule;
}

/// The interval of a word that needs no number.
std::optional<seconds> parsePeriod(std::string_view word)
{
    if (word == "daily")
        return day;
    if (word == "weekly")
        return week;
    if (word == "monthly")
        return month;
    return {};
}

} // namespace

const char* const numberRange = "n from 1 to 2147483647";

bool isInRange(const std::optional<std::uint64_t>& number)
{
    return number && *number >= 1 && *number <= INT_MAX;
}

std::optional<seconds> timeSpan(const Quantity& text)
{
    constexpr std::pair<std::string_view, seconds> units[] = {{"seconds", seconds(1)}, {"minutes", minute},
                                                              {"hours", hour},         {"days", day},
                                                              {"weeks", week},         {"months", month}};
    for (const auto& [name, length] : units) {
        if (name == text.unit && isInRange(text.number))
            return std::min(length * static_cast<seconds::rep>(*text.number), maxSpan);
    }
    return {};
}

RotationRule parseRotation(const std::string& text)
{
    if (text.find_first_of(",:") != text.npos)
        return parseTimeOfDay(text);

    RotationRule rule;
    const std::optional<Quantity> quantity = Quantity::parse(text);
    if (!quantity)
        refuse<Poco::InvalidArgumentException>(text);
    if (!quantity->number && quantity->unit == "never")
        return rule;
    if (const auto span = quantity->number ? timeSpan(*quantity) : parsePeriod(quantity->unit)) {
        rule.kind = Kind::Interval;
        rule.interval = *span;
        return rule;
    }
    rule.kind = Kind::Size;
    rule.size = parseByteSize(text).value_or(0);
    if (rule.size == 0)
        refuse<Poco::InvalidArgumentException>(text);
    return rule;
}

} // namespace Zyr
