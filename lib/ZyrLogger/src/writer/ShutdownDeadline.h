#pragma once

#include <chrono>

/// How long the end of a logger waits for a store that fails or hangs.
namespace Zyr::ShutdownDeadline {

using Clock = std::chrono::steady_clock;

/// From now on all loggers share one budget of eight seconds, which begins with the first that finds its store failing.
/// Until then each one waits two seconds at most.
void programEnds() noexcept;

/// The same when the calling thread is the main one and ends, as it does before static objects are destroyed.
void watchMainThread() noexcept;

/// Deadline for a caller that finds the store failing at `now`.
Clock::time_point limit(Clock::time_point now) noexcept;

} // namespace Zyr::ShutdownDeadline
