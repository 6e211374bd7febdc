// One point of one of the library's cost curves, in a process of its own. bench/curves.py runs them all.
//
//   curves <curve> <point>      curves records 100000
//
// Prints one JSON object, or says on standard error what is wrong and fails.

#include "Loggers.h"

#include "peers/RecordCheck.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtCore/QLocale>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <unistd.h>

namespace {

using namespace std::chrono_literals;

struct Figure
{
    const char* name;
    double value;
};
using Figures = std::vector<Figure>;

constexpr int calls = 50'000; // their lines do not fill a file, so that they can be counted

const Bench::Record::Lines lines;

/// Of the process: the number behind the field in a file of /proc/self.
double own(const char* file, std::string_view field)
{
    std::ifstream stream(std::string("/proc/self/") + file);
    for (std::string word; stream >> word;) {
        if (double value = 0; word == field && stream >> value)
            return value;
    }
    throw std::runtime_error(std::string(file) + " has no " + std::string(field));
}

double threadNanoseconds()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e9 + double(time.tv_nsec);
}

/// Mean nanoseconds of a call on this thread. `log` gets numbers from `first` on.
template <typename Log>
double timeCalls(int first, const Log& log)
{
    const double start = threadNanoseconds();
    for (int number = first; number < first + calls; ++number)
        log(number);
    return (threadNanoseconds() - start) / calls;
}

void expectLines(Bench::Loggers& loggers, const char* name, std::ptrdiff_t expected)
{
    loggers.finish();
    if (const std::ptrdiff_t found = loggers.lines(name); found != expected)
        throw std::runtime_error(std::to_string(found) + " lines in the file, where " + std::to_string(expected) +
                                 " should be");
}

// A load of records, by one or several threads.

class Load
{
public:
    explicit Load(Bench::Loggers& itsLoggers)
        : loggers(itsLoggers)
        , logger(loggers.make("load", ""))
    {
    }

    /// All lines have the same length, whatever the number of records.
    void log(int number, const QString&, double) { Bench::logStandard(logger, lines, number); }

    void finish() { loggers.finish(); }

private:
    Bench::Loggers& loggers;
    Zyr::Logger& logger;
};

/// Throws when fewer bytes were written than the lines have: old ones are deleted with their archives. Twice a page
/// more is room for the main log.
void checkBytes(double written, const Bench::Task& task)
{
    constexpr std::string_view time = R"({"timestamp":"2026-11-23T07:16:01.507+0000",)";
    double ofThousand = 0;
    for (int number = 1000; number < 2000; ++number) // written 1,000 to 1,999, and a line end
        ofThousand += double(time.size() + Bench::expectedEnd(number, lines).size() + 2);
    const double expected = ofThousand * task.records() / 1000;
    if (written < expected || written > expected + 8192)
        throw std::runtime_error(std::to_string(written) + " bytes written, where " + std::to_string(expected) +
                                 " should be");
}

Figures load(Bench::Loggers& loggers, int threads, int records)
{
    const Bench::Task task = {false, threads, records};
    Load peer(loggers);
    const double bytesBefore = own("io", "wchar:");
    const double memoryBefore = own("status", "VmHWM:");
    const Bench::Cost cost = Bench::measure(peer, task);
    const double memory = own("status", "VmHWM:") - memoryBefore;
    checkBytes(own("io", "wchar:") - bytesBefore, task);
    return {{"wall", cost.wallNanoseconds / task.records()},
            {"processor", cost.processorNanoseconds / task.records()},
            {"peak", memory}};
}

Figures logRecords(Bench::Loggers& loggers, int records)
{
    return load(loggers, 1, records);
}

Figures logByThreads(Bench::Loggers& loggers, int threads)
{
    return load(loggers, threads, 200'000);
}

Figures logArguments(Bench::Loggers& loggers, int arguments)
{
    Zyr::Logger& logger = loggers.make("arguments", "");
    QString text = QStringLiteral("values");
    for (int place = 1; place <= arguments; ++place)
        text += QStringLiteral(" %") + QString::number(place);
    const auto log = [&](int number) {
        Zyr::LogMessage& message = logger.out(Zyr::Info, text, __FILE__, __LINE__);
        for (int place = 0; place < arguments; ++place) {
            if (place % 3 == 0)
                static_cast<void>(message.arg(1000 + number % 1000));
            else if (place % 3 == 1)
                static_cast<void>(message.arg(lines.of(number)));
            else
                static_cast<void>(message.arg(Bench::Record::pressure(number)));
        }
        message.endl();
    };
    constexpr int first = 10'000;
    for (int number = 0; number < first; ++number) // starts the writer's thread, fills caches
        log(number);
    const double call = timeCalls(first, log);
    expectLines(loggers, "arguments", first + calls);
    return {{"call", call}};
}

Figures rememberRecords(Bench::Loggers& loggers, int records)
{
    Zyr::Logger& logger = loggers.make(
        "remember",
        "checkRepeatedMsg=true\nmaxRepeatedMsgCounter=2000000000\namountRepeatedMsg=" + std::to_string(records) + '\n');
    const auto log = [&logger](int number) { Bench::logEntry(logger, Zyr::Info, lines, number); };
    const int first = 1'000'000; // of seven digits, like the others
    for (int number = first - records; number < first; ++number)
        log(number);
    const double fresh = timeCalls(first, log);
    // Cycles through all remembered records.
    const int oldest = first + calls - records;
    const double repeat = timeCalls(0, [&](int number) { log(oldest + number % records); });
    expectLines(loggers, "remember", records + calls);
    return {{"new", fresh}, {"repeat", repeat}};
}

// Class loggers

QString className(int number)
{
    return QStringLiteral("Class") + QString::number(number);
}

std::filesystem::path fileOf(const Bench::Loggers& loggers, int number, const char* ending)
{
    return loggers.path(QStringLiteral("curves_") + className(number) + QLatin1String(ending)).toStdString();
}

/// Never destroyed: that takes a second each.
Zyr::Logger& makeClassLogger(int number)
{
    return (new Zyr::ClassLogger(className(number)))->getLogger();
}

/// Waits until all files have their lines and the threads that wrote them sleep.
double memoryAtRest(const Bench::Loggers& loggers, int files)
{
    const auto limit = Bench::Clock::now() + 30s;
    for (int number = 0; number < files; ++number) {
        while (std::filesystem::is_empty(fileOf(loggers, number, ".log"))) {
            if (Bench::Clock::now() > limit)
                throw std::runtime_error("no line in a class logger's file");
            usleep(1000);
        }
    }
    double memory = 0;
    double before = 0;
    do {
        before = std::exchange(memory, own("smaps_rollup", "Rss:"));
        usleep(20'000);
    } while (memory != before);
    return memory;
}

Figures makeClassLoggers(Bench::Loggers& loggers, int count, bool haveSettings)
{
    // The first one includes what is made only once.
    Bench::logStandard(makeClassLogger(0), lines, 0);
    for (int number = 1; haveSettings && number <= count; ++number)
        std::filesystem::copy_file(fileOf(loggers, 0, "_Log.ini"), fileOf(loggers, number, "_Log.ini"));
    const double memoryBefore = memoryAtRest(loggers, 1);

    std::vector<Zyr::Logger*> made;
    const Bench::Clock::time_point start = Bench::Clock::now();
    for (int number = 1; number <= count; ++number)
        made.push_back(&makeClassLogger(number));
    const std::chrono::duration<double, std::milli> time = Bench::Clock::now() - start;
    for (Zyr::Logger* logger : made)
        Bench::logStandard(*logger, lines, 0);
    const double memory = memoryAtRest(loggers, count + 1) - memoryBefore;

    made.front()->flushFinal(); // which shuts all of POCO's logging down
    return {{"make", time.count() / count}, {"memory", memory / count}};
}

Figures makeNewClassLoggers(Bench::Loggers& loggers, int count)
{
    return makeClassLoggers(loggers, count, false);
}

Figures makeKnownClassLoggers(Bench::Loggers& loggers, int count)
{
    return makeClassLoggers(loggers, count, true);
}

struct Curve
{
    std::string_view name;
    Figures (*measure)(Bench::Loggers& loggers, int point);
    int min;
    int max;
};

constexpr Curve curves[] = {
    {"records", logRecords, 1000, 100'000'000},
    {"threads", logByThreads, 1, 1000},
    {"arguments", logArguments, 0, 8},
    {"new-class-loggers", makeNewClassLoggers, 1, 1000},
    {"class-loggers", makeKnownClassLoggers, 1, 1000},
    {"remembered", rememberRecords, 1, 10'000},
};

/// Nullptr where there is no such curve or point.
const Curve* findCurve(std::string_view name, int point)
{
    const auto found =
        std::find_if(std::begin(curves), std::end(curves), [name](const Curve& curve) { return curve.name == name; });
    return found != std::end(curves) && point >= found->min && point <= found->max ? found : nullptr;
}

int run(const Curve& curve, int point)
{
    try {
        Bench::Loggers loggers;
        const Figures figures = curve.measure(loggers, point);
        std::printf(R"({"compiler": "%s", "qt": "%s")", Bench::compiler, qVersion());
        for (const Figure& figure : figures)
            std::printf(R"(, "%s": %.3f)", figure.name, figure.value);
        std::printf("}\n");
        return std::fflush(stdout) == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s %d: %s\n", curve.name.data(), point, error.what());
        return 1;
    }
}

} // namespace

int main(int count, char* words[])
{
    const int point = count == 3 ? std::atoi(words[2]) : -1;
    const Curve* const curve = count == 3 ? findCurve(words[1], point) : nullptr;
    if (!curve) {
        std::fprintf(stderr, "usage: %s <curve> <point>; the curves are", words[0]);
        for (const Curve& each : curves)
            std::fprintf(stderr, " %s", each.name.data());
        std::fprintf(stderr, "\n");
        return 2;
    }
    setenv("TZ", ":/etc/localtime", 0); // as in the comparison with other libraries
    const QCoreApplication application(count, words);
    QCoreApplication::setApplicationName(QStringLiteral("curves"));
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    _exit(run(*curve, point)); // the class loggers would take a second each
}
