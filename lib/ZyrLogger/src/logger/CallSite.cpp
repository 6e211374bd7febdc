// What rate-limited statements count, without a lock.

#include <ZyrLogger/CallSite.h>

#include <algorithm>
#include <type_traits>

#include <time.h>

namespace Zyr::Detail {

namespace {

constexpr std::uint32_t ticksPerSecond = 16;
constexpr std::uint32_t lowHalf = 0xffff;

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(std::is_trivially_destructible_v<EveryNth> && std::is_trivially_destructible_v<AtMostPerSecond>);
// Programs that were built with an earlier 2.x hold these, on every processor.
static_assert(sizeof(EveryNth) == 4 && alignof(EveryNth) == 4);
static_assert(sizeof(AtMostPerSecond) == 8 && alignof(AtMostPerSecond) == 4);

} // namespace

/// The counter begins anew with every n-th call. Were it to run on, it would miscount when it wraps around, unless n is
/// a power of two.
bool EveryNth::pass(int n) noexcept
{
    if (n < 2)
        return true;
    std::uint32_t count = calls.load(std::memory_order_relaxed);
    std::uint32_t next;
    do {
        next = count + 1 < std::uint32_t(n) ? count + 1 : 0;
    } while (!calls.compare_exchange_weak(count, next, std::memory_order_relaxed));
    return count == 0;
}

/// The coarse clock costs less; it lags some milliseconds behind.
std::uint32_t AtMostPerSecond::steadyClock() noexcept
{
    timespec time = {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::uint32_t(time.tv_sec) * ticksPerSecond + std::uint32_t(time.tv_nsec) / (1'000'000'000 / ticksPerSecond);
}

/// Start and count do not fit into one word. So the count names the second that it belongs to: a new second begins with
/// a new start alone, by which the old count becomes void.
///
/// Each round reads the count, then the start, which is therefore not older than the count's, and then the clock, which
/// is therefore not behind the start: the difference is right across the clock's wrap-around. Only a site silent for
/// exactly 2^32 ticks, eight years, mistakes an old start for a present one.
bool AtMostPerSecond::pass(int n, std::uint32_t (*clock)() noexcept) noexcept
{
    if (n < 1)
        return false;
    const auto limit = std::uint32_t(std::min(n, most));
    for (;;) {
        std::uint32_t count = passed.load(std::memory_order_acquire);
        std::uint32_t begin = start.load(std::memory_order_acquire);
        const std::uint32_t now = clock();
        // The first call came up to a tick after `begin`, and the clock lags.
        if (now - begin > ticksPerSecond + 1) {
            // A multiple of 4096 seconds later the old count would be taken over.
            if (count >> 16 == (now & lowHalf))
                passed.compare_exchange_strong(count, count + lowHalf + 1, std::memory_order_acq_rel);
            else
                start.compare_exchange_strong(begin, now, std::memory_order_acq_rel);
            continue;
        }
        const std::uint32_t name = begin & lowHalf;
        const std::uint32_t used = count >> 16 == name ? count & lowHalf : 0;
        if (used >= limit)
            return false;
        if (passed.compare_exchange_weak(count, name << 16 | (used + 1), std::memory_order_acq_rel))
            return true;
    }
}

} // namespace Zyr::Detail
