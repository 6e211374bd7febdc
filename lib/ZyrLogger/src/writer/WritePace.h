#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace Zyr {

/// For how long the worker thread leaves lines to gather after a write, by how fast they come.
///
/// A thread that logs pays more for waking the worker than for its line. So while lines come at a steady pace the
/// worker wakes by itself, after a time in which some come; when none came in that time, it sleeps until it is woken.
class WritePace
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr Clock::duration shortest = std::chrono::milliseconds(1);
    static constexpr Clock::duration longest = std::chrono::milliseconds(8);

    /// Zero: lines are not left to gather.
    Clock::duration gatheringTime() const noexcept { return time; }

    /// A write has ended, of so many lines.
    void wrote(std::size_t lines, Clock::time_point now) noexcept
    {
        lastWrite = now;
        if (lines > 1)
            time = std::max(time, shortest);
    }

    /// That time has passed, or was cut short, and so many lines are there.
    void gathered(std::size_t lines) noexcept
    {
        if (lines == 0)
            time = {};
        else if (lines == 1)
            time = std::min(time * 2, longest);
        else if (lines > enough)
            time = std::max(time / 2, shortest);
    }

    /// A line has woken the worker.
    void woken(Clock::time_point now) noexcept
    {
        const Clock::duration interval = now - lastWrite;
        if (interval <= longest / 2)
            time = std::max(interval * 2, shortest);
    }

private:
    static constexpr std::size_t enough = 4; ///< lines, for a write that costs each of them little

    Clock::duration time{0};
    Clock::time_point lastWrite;
};

} // namespace Zyr
