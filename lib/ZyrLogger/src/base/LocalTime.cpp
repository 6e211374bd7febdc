// The C library's time zone, looked up again about once a second, and safe to ask in a forked child.

#include "base/LocalTime.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <limits>

namespace Zyr::LocalTime {

namespace {

constinit std::atomic<std::uint32_t> lastCheck = UINT32_MAX; // no 64 bits, which need a lock on some ARM processors
constinit std::atomic<std::int32_t> lastOffset = 0;
constinit std::atomic<int> threadsInside = 0;
constinit std::atomic<bool> frozen = false;

/// Around the calls that take the C library's lock. If fork copies that lock as taken, the copied count is not 0.
class Inside
{
public:
    Inside() noexcept { threadsInside.fetch_add(1); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() { threadsInside.fetch_sub(1); }
};

std::int32_t askOffset(std::int64_t second) noexcept
{
    using Limits = std::numeric_limits<std::time_t>; // of 32 bits on older systems
    const auto time = std::time_t(std::clamp<std::int64_t>(second, Limits::min(), Limits::max()));
    std::tm fields;
    return ::localtime_r(&time, &fields) ? std::int32_t(fields.tm_gmtoff) : lastOffset.load(std::memory_order_relaxed);
}

void readZone() noexcept
{
    if (frozen.load(std::memory_order_relaxed))
        return;
    const Inside inside;
    ::tzset();
    lastOffset.store(askOffset(std::time(nullptr)), std::memory_order_relaxed);
}

} // namespace

std::int32_t offsetAt(std::int64_t second) noexcept
{
    if (frozen.load(std::memory_order_relaxed))
        return lastOffset.load(std::memory_order_relaxed);
    const Inside inside;
    return askOffset(second);
}

std::uint32_t checkZone() noexcept
{
    timespec now; // of the clock that is read without a system call in a few nanoseconds
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const auto second = std::uint32_t(now.tv_sec);
    if (lastCheck.load(std::memory_order_acquire) != second) {
        // A thread that comes here meanwhile checks as well, so that none goes on with the old zone.
        readZone();
        lastCheck.store(second, std::memory_order_release);
    }
    return second;
}

void afterForkInChild() noexcept
{
    if (threadsInside.exchange(0) != 0)
        frozen.store(true, std::memory_order_relaxed);
}

} // namespace Zyr::LocalTime
