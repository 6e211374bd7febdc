#pragma once

#include "system/Retry.h"

#include <atomic>
#include <chrono>

namespace Zyr {

/// Measures how long the worker thread has been inside one system call, so that others see that the store hangs.
class CallWatch
{
public:
    using Clock = std::chrono::steady_clock;

    /// Makes one system call, repeated after EINTR; it counts as hung when it has not returned after `limit`. Keeps
    /// errno. A call that must not be repeated, as close(), does not return its result from `call`.
    template <typename Call>
    auto operator()(Call call, std::chrono::seconds limit = std::chrono::seconds(2)) noexcept
    {
        hangsFrom.store((Clock::now() + limit).time_since_epoch().count(), std::memory_order_relaxed);
        const auto result = retried(call);
        hangsFrom.store(0, std::memory_order_relaxed);
        return result;
    }

    /// When the current call counts as hung; Clock::time_point::max() outside of calls.
    Clock::time_point limit() const noexcept
    {
        const Clock::rep from = hangsFrom.load(std::memory_order_relaxed);
        return from == 0 ? Clock::time_point::max() : Clock::time_point(Clock::duration(from));
    }

private:
    std::atomic<Clock::rep> hangsFrom = 0;
};

} // namespace Zyr
