// Whole entries, from out() to endl().

#include "Steps.h"

#include <ZyrLogger/Macros.h>

#include <Poco/Timestamp.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

using benchmark::State;

void log(State& state, const char* name, const char* settings)
{
    Zyr::Logger& logger = Bench::logger(name, settings);
    int number = 0;
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        Bench::logStandard(logger, Bench::lines, number++);
    }
}
BENCHMARK_CAPTURE(log, written, "written", "")->Name("Entry, written")->Threads(1)->Threads(2);
BENCHMARK_CAPTURE(log, included, "included", "textFilters=reservoir|pressure\n")->Name("Entry, with an include filter");
BENCHMARK_CAPTURE(log, dropped, "dropped", "textFilters=reservoir\n")->Name("Entry, dropped by a filter");

void logPlain(State& state)
{
    Zyr::Logger& logger = Bench::logger("plain");
    const QString text = QStringLiteral("The pressure of the pump is what it should be");
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        logger.out(Zyr::Info, text, __FILE__, __LINE__).endl();
    }
}
BENCHMARK(logPlain)->Name("Entry, plain text, written");

void logToListener(State& state)
{
    class Listener : public Zyr::Logger::LogListener
    {
        void handleMessage(QString, QString, QString) override {}
    };
    static Listener listener;
    Zyr::Logger& logger = Bench::logger("heard");
    logger.registerLogListener(&listener);
    int number = 0;
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        Bench::logStandard(logger, Bench::lines, number++);
    }
}
BENCHMARK(logToListener)->Name("Entry, with a listener");

Zyr::Logger& rememberer(std::int64_t records)
{
    const std::string count = std::to_string(records);
    return Bench::logger("remembers" + count, "checkRepeatedMsg=true\nmaxRepeatedMsgCounter=2000000000\n"
                                              "amountRepeatedMsg=" +
                                                  count + '\n');
}

void logRepeat(State& state)
{
    Zyr::Logger& logger = rememberer(10);
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        Bench::logStandard(logger, Bench::lines, 0);
    }
}
BENCHMARK(logRepeat)->Name("Repeat suppression, entry counted");

void logNew(State& state)
{
    Zyr::Logger& logger = rememberer(state.range(0));
    static int number = 0; // new to every logger, also in the next run
    const auto logOne = [&] { Bench::logEntry(logger, Zyr::Info, Bench::lines, ++number); };
    for (std::int64_t i = 0; i < state.range(0); ++i)
        logOne();
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        logOne();
    }
}
BENCHMARK(logNew)->Name("Repeat suppression, new entry among")->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

// Disabled ones, and what they consist of.

void logDisabled(State& state)
{
    Zyr::Logger& logger = Bench::logger("written");
    int number = 0;
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        Bench::logEntry(logger, Zyr::Debug, Bench::lines, number++);
    }
}
BENCHMARK(logDisabled)->Name("Disabled entry")->Threads(1)->Threads(2);

void readClock(State& state)
{
    for (auto _ : state) {
        const Poco::Timestamp now;
        benchmark::DoNotOptimize(now.epochMicroseconds());
    }
}
BENCHMARK(readClock)->Name("Disabled entry, of which the clock");

void makeArguments(State& state)
{
    int number = 0;
    for (auto _ : state) {
        QString text = Bench::standardText;
        QVariant first = number;
        QVariant second = Bench::lines.of(number);
        QVariant third = Bench::Record::pressure(number);
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(first);
        benchmark::DoNotOptimize(second);
        benchmark::DoNotOptimize(third);
        ++number;
    }
}
BENCHMARK(makeArguments)->Name("Disabled entry, of which text and arguments");

void logDisabledMacro(State& state)
{
    Zyr::Logger& logger = Bench::logger("written");
    int number = 0;
    for (auto _ : state) {
        ZYR_DEBUG_TO(logger, "pump %1 on line %2 has a pressure of %3 bar")
            .arg(number)
            .arg(Bench::lines.of(number))
            .arg(Bench::Record::pressure(number))
            .endl();
        ++number;
    }
}
BENCHMARK(logDisabledMacro)->Name("Disabled entry, ZYR_DEBUG_TO")->Threads(1)->Threads(2);

void logDisabledMainMacro(State& state)
{
    for (auto _ : state)
        ZYR_DEBUG("The pressure of the pump is what it should be").endl();
}
BENCHMARK(logDisabledMainMacro)->Name("Disabled entry, ZYR_DEBUG");

void askLevel(State& state)
{
    const Zyr::Logger& logger = Bench::logger("written");
    for (auto _ : state)
        benchmark::DoNotOptimize(logger.isEnabled(Zyr::Debug));
}
BENCHMARK(askLevel)->Name("isEnabled()");

} // namespace
