// From the record to the queue: the line, and what the calling thread does to queue it.

#include "Steps.h"

#include "line/LinePatterns.h"
#include "queue/LineQueue.h"
#include "store/LogFile.h"
#include "writer/LogWriter.h"

#include <Poco/Message.h>
#include <Poco/PatternFormatter.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <string_view>

namespace {

using benchmark::State;

const std::string pattern = R"({"timestamp":"%Y-%m-%dT%H:%M:%S.%i%Z","level":"%p","msg":"%t"})";
const std::string priorityNames = "fatal,panic,error,warn,notice,info,debug,trace";
constexpr Poco::Timestamp::TimeDiff microsecondsBetween = 10; // two records

Poco::Message record()
{
    return {"Bench", "pump 1,012 on line Northern intake main has a pressure of 1.512 bar",
            Poco::Message::PRIO_INFORMATION};
}

void format(State& state)
{
    Zyr::LinePatterns patterns;
    patterns.replace([](Zyr::LinePattern::Source& source) { source = {pattern, true, priorityNames}; });
    Poco::Message message = record();
    Zyr::LineBuffer line;
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        message.setTime(message.getTime() + microsecondsBetween);
        line.clear();
        patterns.current().format(message, line);
        benchmark::DoNotOptimize(line.view().data());
    }
}
BENCHMARK(format)->Name("Line, default pattern");

void formatByPoco(State& state)
{
    Poco::AutoPtr formatter(new Poco::PatternFormatter(pattern));
    formatter->setProperty(Poco::PatternFormatter::PROP_TIMES, "local");
    formatter->setProperty(Poco::PatternFormatter::PROP_PRIORITY_NAMES, priorityNames);
    Poco::Message message = record();
    std::string line;
    for (auto _ : state) {
        message.setTime(message.getTime() + microsecondsBetween);
        line.clear();
        formatter->format(message, line);
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(formatByPoco)->Name("Line, default pattern: Poco::PatternFormatter");

const std::string line(130, 'x');

void queue(State& state)
{
    Zyr::LineQueue lines(Zyr::QueueLimits().bytes);
    lines.openFastPath(true);
    int queued = 0;
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        if (!lines.append(line) && !lines.appendLocked(line)) {
            const std::size_t bytes = lines.chunkBytes(line);
            lines.reserve(bytes);
            if (!lines.add(Zyr::LineChunk::map(bytes, false), bytes, line))
                return state.SkipWithError("no memory");
        }
        if (++queued == 1000) {
            lines.pop(1000);
            queued = 0;
        }
    }
}
BENCHMARK(queue)->Name("Queue alone, 130 bytes in and out");

/// Together with its thread, whose time does not count.
void push(State& state)
{
    static const auto writer = [] {
        auto made = std::make_shared<Zyr::LogWriter>(&Zyr::LogFile::make);
        Zyr::FileSettings settings;
        settings.path = "/dev/null";
        settings.flush = false;
        made->configure(settings);
        return made;
    }();
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        writer->push(line);
    }
    if (state.thread_index() == 0)
        writer->finish();
}
BENCHMARK(push)->Name("Queue and wake the writer, 130 bytes")->Threads(1)->Threads(2);

} // namespace
