// Times the record's statement while its level is off, and what of that the clock and the arguments take by themselves.

#pragma once

#include "../Timing.h"

#include <algorithm>
#include <atomic>
#include <vector>

namespace Bench {

struct BelowLevelCost
{
    double statement; ///< nanoseconds
    double beyond;    ///< what the clock and the arguments leave of it
};

/// A Peer has:
///
///   void logDisabled(int number, const QString& line, double pressure)       the statement of log(), below the level
///   void makeArguments(int number, const QString& line, double pressure)     of that the clock and the arguments
template <class Peer>
BelowLevelCost measureBelowLevel(Peer& peer)
{
    const QString line = Record::Lines().of(0);
    constexpr int batches = 101;
    constexpr int statements = 2000;
    const auto nanosecondsEach = [&](auto execute) {
        const Clock::time_point start = Clock::now();
        for (int number = 0; number < statements; ++number) {
            execute(number, line, 1.5);
            std::atomic_signal_fence(std::memory_order_seq_cst); // else the level is read once for all of them
        }
        return double(since(start)) / statements;
    };
    const auto median = [](std::vector<double>& values) {
        std::nth_element(values.begin(), values.begin() + batches / 2, values.end());
        return values[batches / 2];
    };
    // In turns, so that both see the same processor.
    std::vector<double> whole(batches);
    std::vector<double> arguments(batches);
    for (int batch = 0; batch < batches; ++batch) {
        whole[std::size_t(batch)] = nanosecondsEach([&](const auto&... values) { peer.logDisabled(values...); });
        arguments[std::size_t(batch)] = nanosecondsEach([&](const auto&... values) { peer.makeArguments(values...); });
    }
    const double statement = median(whole);
    return {statement, statement - median(arguments)};
}

} // namespace Bench
