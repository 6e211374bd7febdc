// The times of day at which the log rotates, on a wall clock that shifts with summer time.

#include "store/rotation/TimeOfDay.h"

#include "base/LocalTime.h"

#include <algorithm>

namespace Zyr {

namespace {

using std::chrono::seconds;

constexpr seconds minute(60), hour = 60 * minute, day = 24 * hour, week = 7 * day;

/// Local time minus UTC.
seconds offsetAt(seconds time)
{
    return seconds(LocalTime::offsetAt(time.count()));
}

/// The first second with another offset than at `from`, which `to` has.
seconds shiftBetween(seconds from, seconds to)
{
    const seconds offset = offsetAt(from);
    while (to - from > seconds(1)) {
        const seconds middle = from + (to - from) / 2;
        (offsetAt(middle) == offset ? from : to) = middle;
    }
    return to;
}

seconds remainder(seconds time, seconds divisor)
{
    return (time % divisor + divisor) % divisor;
}

/// The first time after `wall` that is `phase` after the start of a period.
seconds nextInPeriod(seconds wall, seconds period, seconds phase)
{
    return wall + period - remainder(wall - phase, period);
}

/// A rule's times on a wall clock, in seconds since 1970.
class WallTimes
{
public:
    explicit WallTimes(const RotationRule& rule)
        : ofEveryDay(!rule.weekday)
        , dayStart((rule.weekday.value_or(4) + 3) % 7 * day) // 1970 began with a Thursday
        , period(!rule.hour   ? hour
                 : ofEveryDay ? day
                              : week)
        , phase((ofEveryDay ? seconds(0) : dayStart) + rule.hour.value_or(0) * hour + rule.minute * minute)
    {
    }

    seconds firstAfter(seconds wall) const
    {
        const seconds next = nextInPeriod(wall, period, phase);
        const bool isOnDay = ofEveryDay || remainder(next - dayStart, week) < day;
        return isOnDay ? next : nextInPeriod(wall, week, phase);
    }

    /// Whether the jump skips or reaches a time of the rule. Whole periods are left out: an hourly rule's minute is the
    /// same in every hour.
    bool isPassed(seconds from, seconds to) const
    {
        const seconds skipped = std::max(to - from, seconds(0)) % period;
        return firstAfter(to - skipped - seconds(1)) <= to;
    }

private:
    bool ofEveryDay;
    seconds dayStart;
    seconds period;
    seconds phase;
};

} // namespace

seconds firstReached(const RotationRule& rule, bool localTime, seconds after)
{
    const WallTimes times(rule);
    if (!localTime)
        return times.firstAfter(after);

    LocalTime::checkZone();
    // Hour by hour: no zone has had two shifts in one. A week plus the largest shift contains every time of a rule.
    const seconds end = after + week + 2 * day;
    for (seconds from = after, offset = offsetAt(from); from < end;) {
        const seconds due = times.firstAfter(from + offset) - offset;
        const seconds to = from + hour;
        const bool isShifted = offsetAt(to) != offset;
        const seconds until = isShifted ? shiftBetween(from, to) : to;
        if (due < until || (due == until && !isShifted))
            return due;
        if (isShifted) {
            const seconds before = offset;
            offset = offsetAt(until);
            if (times.isPassed(until + before, until + offset))
                return until;
        }
        from = until;
    }
    return end;
}

} // namespace Zyr
