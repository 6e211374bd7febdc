#pragma once

#include <ZyrLogger/Export.h>

#include <atomic>
#include <cstdint>

/// What the macros of <ZyrLogger/Macros.h> remember at each place in the source.
///
/// Lock-free: 32-bit atomics only, since wider ones take a lock on small processors. Constant-initialised and without
/// destructor, so that they work during static initialisation and destruction too.
namespace Zyr::Detail {

/// Lets the first call pass and then every n-th.
class ZYRLOGGER_EXPORT EveryNth
{
public:
    /// An `n` below 2 lets every call pass. `n` may differ from call to call.
    bool pass(int n) noexcept;

private:
    std::atomic<std::uint32_t> calls{0}; ///< since the last that passed, including it; 0: the next one passes
};

/// Lets at most n calls pass in a second, which begins with the first of them and lasts up to an eighth longer.
class ZYRLOGGER_EXPORT AtMostPerSecond
{
public:
    static constexpr int most = 0xffff;

    /// An `n` below 1 lets no call pass, one above `most` counts as that. `n` may differ from call to call.
    bool pass(int n, std::uint32_t (*clock)() noexcept = steadyClock) noexcept;

    /// Sixteenths of a second of a monotonic clock; wraps around. Tests replace it.
    static std::uint32_t steadyClock() noexcept;

private:
    std::atomic<std::uint32_t> start{0};  ///< of the second, by the clock
    std::atomic<std::uint32_t> passed{0}; ///< low half: count; high half: low half of the second's start
};

} // namespace Zyr::Detail
