#pragma once

#include "settings/RotationRule.h"

#include <chrono>

namespace Zyr {

/// When a file is due for rotation by the rules Interval and TimeOfDay; by others, never. For one thread.
///
/// Goes by the wall clock. Times in the future count as now: neither a wrong clock nor its correction delays a rotation
/// by more than the rule's own period.
class RotationTimer
{
public:
    using Time = std::chrono::system_clock::time_point;

    /// For a file whose interval began at `began` and which was last written at `written`: a rotation missed since then
    /// is due. For a new file all three times are the same.
    void start(const RotationRule& rule, bool localTimes, Time began, Time written, Time now);

    /// Once true, it stays so until the next start(), unless the clock is set back. Cheap enough to call for every
    /// record.
    bool isDue(Time now);

private:
    RotationRule rule;
    bool inLocalTime = false;
    Time earliest = Time::min(); ///< an earlier `now` shows that the clock was set back
    Time due = Time::max();
};

} // namespace Zyr
