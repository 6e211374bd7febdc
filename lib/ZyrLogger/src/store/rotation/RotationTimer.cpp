// When a file's interval or time of day is reached, by a wall clock that may be wrong or corrected.

#include "store/rotation/RotationTimer.h"

#include "store/rotation/TimeOfDay.h"

#include <algorithm>

namespace Zyr {

namespace {

using std::chrono::seconds;
using Time = RotationTimer::Time;

/// A smaller step back is no reason for a second rotation at the same time of day.
constexpr seconds clockTolerance(60);

/// Saturates at Time::max().
Time sum(Time time, seconds span)
{
    const auto room = std::chrono::floor<seconds>(Time::max() - std::max(time, Time{}));
    return span < room ? time + span : Time::max();
}

} // namespace

void RotationTimer::start(const RotationRule& newRule, bool localTimes, Time began, Time written, Time now)
{
    rule = newRule;
    inLocalTime = localTimes;
    earliest = Time::min();
    due = Time::max();
    switch (rule.kind) {
    case RotationRule::Kind::Never:
    case RotationRule::Kind::Size:
        break;
    case RotationRule::Kind::Interval: {
        const Time base = std::min(began, now);
        earliest = base;
        due = sum(base, rule.interval);
        break;
    }
    case RotationRule::Kind::TimeOfDay: {
        // Not before the epoch, where clocks without a battery start, so that sums do not overflow.
        const Time base = std::clamp(written, Time{}, std::max(now, Time{}));
        earliest = base - clockTolerance;
        const auto second = std::chrono::floor<seconds>(base);
        due = sum(Time(second), firstReached(rule, inLocalTime, second.time_since_epoch()) - second.time_since_epoch());
        break;
    }
    }
}

bool RotationTimer::isDue(Time now)
{
    if (now < earliest)
        start(rule, inLocalTime, now, now, now);
    return now >= due;
}

} // namespace Zyr
