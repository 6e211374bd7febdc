// What every program of the comparison does around its library: command line, check and result.
//
//   <program> latency|throughput [threads: 1] [records per thread: 200000]
//
// Prints one JSON object, or says on standard error what is wrong and fails. A Peer has, beside what measure()
// needs:
//
//   static constexpr const char* name; static std::string version();
//   Peer(const QString& file, int records)                         before the clock starts; records: of all threads

#pragma once

#include "../Timing.h"
#include "RecordCheck.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLocale>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

namespace Bench {

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
void print(const Task& task, Cost& cost)
{
    std::printf(R"({"library": "%s", "version": "%s", "qt": "%s", "compiler": "%s", "threads": %d, "records": %d, )",
                Peer::name, Peer::version().c_str(), qVersion(), compiler, task.threads, task.recordsPerThread);
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
