// What every program of the comparison does around its library: command line, threads, timing, check and result.
//
//   <program> latency|throughput [threads: 1] [records per thread: 200000]
//
// Prints one JSON object, or says on standard error what is wrong and fails. A Peer has:
//
//   static constexpr const char* name; static std::string version();
//   Peer(const QString& file, int records)                         before the clock starts; records: of all threads
//   void log(int number, const QString& line, double pressure)     from every thread
//   void finish()                                                  returns when every record is in the file

#pragma once

#include "Record.h"
#include "RecordCheck.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLocale>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <latch>
#include <limits>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/resource.h>

namespace Bench {

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::vector<std::uint32_t>;

struct Task
{
    bool timesCalls;
    int threads;
    int recordsPerThread;

    int records() const { return threads * recordsPerThread; }
};

struct Cost
{
    double wallNanoseconds;
    double processorNanoseconds;
    Nanoseconds calls; ///< of all threads; empty unless each call was timed
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

/// Reorders the values.
inline std::uint32_t percentile(Nanoseconds& values, double share)
{
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(share * double(values.size() - 1));
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

/// What timing a call adds to its figure.
inline std::uint32_t clockCost()
{
    Nanoseconds costs(100'001);
    for (std::uint32_t& cost : costs)
        cost = since(Clock::now());
    return percentile(costs, 0.5);
}

template <class Peer>
Cost measure(Peer& peer, const Task& task)
{
    const Record::Lines lines;
    // Filled, so that the memory is there before the clock starts.
    std::vector<Nanoseconds> calls(static_cast<std::size_t>(task.threads),
                                   Nanoseconds(task.timesCalls ? std::size_t(task.recordsPerThread) : 0, 1));
    std::latch ready(task.threads);
    std::latch go(1);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < task.threads; ++thread) {
        threads.emplace_back([&, thread] {
            std::uint32_t* call = task.timesCalls ? calls[std::size_t(thread)].data() : nullptr;
            const int first = thread * task.recordsPerThread;
            ready.count_down();
            go.wait();
            for (int number = first; number < first + task.recordsPerThread; ++number) {
                const QString& line = lines.of(number);
                const double pressure = Record::pressure(number);
                if (call) {
                    const Clock::time_point start = Clock::now();
                    peer.log(number, line, pressure);
                    *call++ = since(start);
                } else {
                    peer.log(number, line, pressure);
                }
            }
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
    Cost cost = {double(std::chrono::nanoseconds(end - start).count()), processorNanoseconds() - processorBefore, {}};
    for (const Nanoseconds& ofThread : calls)
        cost.calls.insert(cost.calls.end(), ofThread.begin(), ofThread.end());
    return cost;
}

template <class Peer>
void print(const Task& task, Cost& cost)
{
    std::printf(R"({"library": "%s", "version": "%s", "qt": "%s", "compiler": "%s", "threads": %d, "records": %d, )",
                Peer::name, Peer::version().c_str(), qVersion(),
#ifdef __clang__
                "clang " __clang_version__,
#else
                "g++ " __VERSION__,
#endif
                task.threads, task.recordsPerThread);
    if (task.timesCalls) {
        std::printf(R"("p50": %u, "p99": %u, "p99.9": %u, "clock": %u})", percentile(cost.calls, 0.5),
                    percentile(cost.calls, 0.99), percentile(cost.calls, 0.999), clockCost());
    } else {
        std::printf(R"("wall": %.1f, "processor": %.1f})", cost.wallNanoseconds / task.records(),
                    cost.processorNanoseconds / task.records());
    }
    std::printf("\n");
}

template <class Peer>
int run(int count, char* words[])
{
    const std::string_view mode = count > 1 ? words[1] : "";
    const Task task = {mode == "latency", count > 2 ? std::atoi(words[2]) : 1,
                       count > 3 ? std::atoi(words[3]) : 200'000};
    if ((!task.timesCalls && mode != "throughput") || count > 4 || task.threads < 1 || task.recordsPerThread < 1) {
        std::fprintf(stderr, "usage: %s latency|throughput [threads [records per thread]]\n", words[0]);
        return 2;
    }
    // The same local time. But where TZ is not set, the C library looks up the date of that file again and again, which
    // more than doubles what a record costs POCO.
    setenv("TZ", ":/etc/localtime", 0);
    const QCoreApplication application(count, words);
    // Groups digits; the same on every machine, for the libraries that write numbers by the locale.
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const QTemporaryDir directory;
    const QString file = directory.filePath(QStringLiteral("peers_Bench.log"));
    try {
        Peer peer(file, task.records());
        Cost cost = measure(peer, task);
        checkRecords(file.toStdString(), task.records());
        print<Peer>(task, cost);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", Peer::name, error.what());
        return 1;
    }
}

} // namespace Bench
