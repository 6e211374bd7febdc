// What every program of the comparison does around its library: command line, check and result.
//
//   <program> <measurement> [threads: 1] [records per thread: 200000]
//
//   throughput     the whole load
//   latency        each call of a load without a pause
//   spin:<us>      each call where a record is due every so many microseconds, and the thread polls the clock meanwhile
//   sleep:<us>     the same, where the thread sleeps meanwhile
//   disabled       the statement below the level, by one thread; the records of the load only show that it wrote none
//
// Prints one JSON object, or says on standard error what is wrong and fails. A Peer has, beside what measure() and
// measureBelowLevel() need:
//
//   static constexpr const char* name; static std::string version();
//   Peer(const QString& file, int records)                         before the clock starts; records: of all threads

#pragma once

#include "BelowLevel.h"
#include "RecordCheck.h"

#include "../Timing.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLocale>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

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

/// The measurement's task, without threads when the words are wrong.
inline Task taskOf(const std::string& measurement, int threads, int records)
{
    const bool sleeps = measurement.starts_with("sleep:");
    const bool paced = sleeps || measurement.starts_with("spin:");
    const int microseconds = paced ? std::atoi(measurement.c_str() + measurement.find(':') + 1) : 0;
    const bool known =
        microseconds > 0 || measurement == "latency" || measurement == "throughput" || measurement == "disabled";
    return {paced || measurement == "latency",
            known && records > 0 ? threads : 0,
            records,
            {std::chrono::microseconds(microseconds), sleeps}};
}

/// Prints the members of a JSON object.
template <class Peer>
void measureAndPrint(Peer& peer, const Task& task, bool belowLevel)
{
    if (belowLevel) {
        const BelowLevelCost cost = measureBelowLevel(peer);
        std::printf(R"("statement": %.2f, "beyond": %.2f)", cost.statement, cost.beyond);
    }
    Cost cost = measure(peer, task);
    if (task.timesCalls) {
        std::printf(R"("p50": %u, "p99": %u, "p99.9": %u, "late": %d, "clock": %u)", percentile(cost.calls, 0.5),
                    percentile(cost.calls, 0.99), percentile(cost.calls, 0.999), cost.late, clockCost());
    } else if (!belowLevel) {
        std::printf(R"("wall": %.1f, "processor": %.1f)", cost.wallNanoseconds / task.records(),
                    cost.processorNanoseconds / task.records());
    }
}

template <class Peer>
int run(int count, char* words[])
{
    const std::string measurement = count > 1 ? words[1] : "";
    const Task task =
        taskOf(measurement, count > 2 ? std::atoi(words[2]) : 1, count > 3 ? std::atoi(words[3]) : 200'000);
    if (task.threads < 1 || count > 4) {
        std::fprintf(stderr,
                     "usage: %s latency|throughput|spin:<us>|sleep:<us>|disabled [threads [records per thread]]\n",
                     words[0]);
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
        std::printf(
            R"({"library": "%s", "version": "%s", "qt": "%s", "compiler": "%s", "threads": %d, "records": %d, )",
            Peer::name, Peer::version().c_str(), qVersion(), compiler, task.threads, task.recordsPerThread);
        measureAndPrint(peer, task, measurement == "disabled");
        checkRecords(file.toStdString(), task.records());
        std::printf("}\n");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", Peer::name, error.what());
        return 1;
    }
}

} // namespace Bench
