#pragma once

#include "settings/FileSettings.h"

#include <chrono>

namespace Zyr {

/// Tells when a file's time is up by the rules Interval and TimeOfDay; never by others. For one thread.
///
/// It follows the wall clock, and what it was told lies in the future by it counts as now: neither a wrong clock nor
/// its correction puts a rotation off by more than the rule's own period.
class RotationTimer
{
public:
    using Time = std::chrono::system_clock::time_point;

    /// For a file whose interval began at `began` and which was last written at `written`, so that what was due since
    /// then still is. For a new file all three are the same.
    void start(const RotationRule& rule, bool localTimes, Time began, Time written, Time now);

    /// From now on until the next start, but for a clock that is set back. Cheap enough to be asked for every record.
    bool isDue(Time now);

private:
    RotationRule rule;
    bool inLocalTime = false;
    Time earliest = Time::min(); ///< before which the clock must have been set back
    Time due = Time::max();
};

} // namespace Zyr
