#pragma once

#include "system/Retry.h"

#include <atomic>
#include <chrono>

namespace Zyr {

/// Since when the worker thread has been inside one system call, for others to see that the store hangs.
class CallWatch
{
public:
    using Clock = std::chrono::steady_clock;

    /// Makes one system call, again where a signal interrupted it; it hangs when it has not come back after `limit`.
    /// Keeps errno. A call that must not be made again, as close(), returns nothing of its own to `call`.
    template <typename Call>
    auto operator()(Call call, std::chrono::seconds limit = std::chrono::seconds(2)) noexcept
    {
        hangsFrom.store((Clock::now() + limit).time_since_epoch().count(), std::memory_order_relaxed);
        const auto result = retried(call);
        hangsFrom.store(0, std::memory_order_relaxed);
        return result;
    }

    /// From when on the present call counts as hung; the end of time outside of calls.
    Clock::time_point limit() const noexcept
    {
        const Clock::rep from = hangsFrom.load(std::memory_order_relaxed);
        return from == 0 ? Clock::time_point::max() : Clock::time_point(Clock::duration(from));
    }

private:
    std::atomic<Clock::rep> hangsFrom = 0;
};

} // namespace Zyr
