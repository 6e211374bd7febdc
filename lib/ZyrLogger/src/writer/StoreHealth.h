#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace Zyr {

/// What follows from a store that fails: when it is tried again, what is reported, and how long callers wait for it.
///
/// It has no clock of its own: each call says what time it is. What it keeps needs no memory, whose lack may be what is
/// wrong.
class StoreHealth
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds minBackoff{2};
    static constexpr std::chrono::milliseconds maxBackoff{1000};
    static constexpr std::chrono::seconds maxCallerWait{2};
    static constexpr std::chrono::seconds quietTime{10}; ///< between two reports
    static constexpr std::size_t maxReason = 256;        ///< bytes; of the system, in any language

    StoreHealth();

    bool isFailing() const noexcept { return failing; }
    /// Of the present failure, or the last one.
    std::string_view reason() const noexcept { return failure; }

    void succeeded() noexcept;
    /// The next try is due after a time that doubles with each failure.
    void failed(const std::error_code& error, Clock::time_point now) noexcept;

    Clock::time_point retryTime() const noexcept { return retryAt; }
    /// The next try is due, and the pauses begin anew.
    void retryNow() noexcept
    {
        retryAt = {};
        backoff = {};
    }

    /// Once in each failure, and not when another one was reported only just now. True counts as reported.
    bool shouldReport(Clock::time_point now) noexcept;

    /// Until when a caller waits for room, now that the queue is full: counted from when the first one found it full,
    /// since the last success or the beginning of the failure.
    Clock::time_point waitLimit(Clock::time_point now) noexcept;

private:
    bool failing = false;
    std::string failure; ///< in memory that it keeps
    Clock::time_point retryAt;
    std::chrono::milliseconds backoff{0};
    bool reported = false; ///< the present failure
    std::optional<Clock::time_point> lastReport;
    std::optional<Clock::time_point> fullSince;
};

} // namespace Zyr
