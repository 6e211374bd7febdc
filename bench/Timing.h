// Times a load of records, logged by several threads, from the first call until everything is in the file: as fast as
// the threads can, or at a device's pace.

#pragma once

#include "peers/Record.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <latch>
#include <limits>
#include <thread>
#include <vector>

#include <sys/resource.h>

namespace Bench {

inline constexpr const char* compiler =
#ifdef __clang__
    "clang " __clang_version__;
#else
    "g++ " __VERSION__;
#endif

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::vector<std::uint32_t>;

/// When a thread's records are due: one each period, however long the calls before it took.
struct Pace
{
    std::chrono::microseconds period{0}; ///< 0: as fast as the thread can
    bool sleeps = false;                 ///< between records, as a device's thread does; else it watches the clock

    void waitUntil(Clock::time_point due) const
    {
        if (sleeps)
            std::this_thread::sleep_until(due);
        while (Clock::now() < due) {
        }
    }
};

struct Task
{
    bool timesCalls;
    int threads;
    int recordsPerThread;
    Pace pace = {}; ///< of each thread

    int records() const { return threads * recordsPerThread; }
};

struct Cost
{
    double wallNanoseconds;
    double processorNanoseconds;
    Nanoseconds calls; ///< of all threads; empty unless each call was timed
    int late;          ///< how many of those began a whole period or more after they were due
};

inline double processorNanoseconds()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto nanoseconds = [](const timeval& time) { return double(time.tv_sec) * 1e9 + double(time.tv_usec) * 1e3; };
    return nanoseconds(usage.ru_utime) + nanoseconds(usage.ru_stime);
}

inline std::uint32_t since(Clock::time_point start)
{
    const std::int64_t passed = std::chrono::nanoseconds(Clock::now() - start).count();
    return static_cast<std::uint32_t>(std::min<std::int64_t>(passed, std::numeric_limits<std::uint32_t>::max()));
}

/// Logs the numbers from `first` on. Where calls are timed, `call` is where the first one's time goes. Returns how many
/// began late, as Cost has it.
template <class Peer>
int logRecords(Peer& peer, const Task& task, int first, const Record::Lines& lines, std::uint32_t* call)
{
    const Pace& pace = task.pace;
    Clock::time_point due = Clock::now();
    int late = 0;
    for (int number = first; number < first + task.recordsPerThread; ++number) {
        const QString& line = lines.of(number);
        const double pressure = Record::pressure(number);
        if (pace.period.count() > 0) {
            due += pace.period;
            pace.waitUntil(due);
        }
        if (!call) {
            peer.log(number, line, pressure);
            continue;
        }
        const Clock::time_point start = Clock::now();
        peer.log(number, line, pressure);
        *call++ = since(start);
        late += pace.period.count() > 0 && start - due >= pace.period;
    }
    return late;
}

/// A Peer has:
///
///   void log(int number, const QString& line, double pressure)     from every thread
///   void finish()                                                  returns when every record is in the file
template <class Peer>
Cost measure(Peer& peer, const Task& task)
{
    const Record::Lines lines;
    // Filled, so that the memory is there before the clock starts.
    std::vector<Nanoseconds> calls(static_cast<std::size_t>(task.threads),
                                   Nanoseconds(task.timesCalls ? std::size_t(task.recordsPerThread) : 0, 1));
    std::atomic<int> late = 0;
    std::latch ready(task.threads);
    std::latch go(1);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < task.threads; ++thread) {
        threads.emplace_back([&, thread] {
            ready.count_down();
            go.wait();
            late += logRecords(peer, task, thread * task.recordsPerThread, lines,
                               task.timesCalls ? calls[std::size_t(thread)].data() : nullptr);
        });
    }
    ready.wait();
    const double processorBefore = processorNanoseconds();
    const Clock::time_point start = Clock::now();
    go.count_down();
    for (std::thread& thread : threads)
        thread.join();
    peer.finish();
    const Clock::time_point end = Clock::now();
    Cost cost = {
        double(std::chrono::nanoseconds(end - start).count()), processorNanoseconds() - processorBefore, {}, late};
    for (const Nanoseconds& ofThread : calls)
        cost.calls.insert(cost.calls.end(), ofThread.begin(), ofThread.end());
    return cost;
}

} // namespace Bench
