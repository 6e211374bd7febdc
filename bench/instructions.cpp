// Logs entries on one path after another, for callgrind to count the instructions of the thread that logs. Run by
// bench/instructions.py, which reads the counts.
//
//   instructions <entries per path>
//
// Fails where a path does not do what its name says. Prints what the counts depend on.

#include "Loggers.h"

#include <ZyrLogger/Macros.h>

#include <QtCore/QLocale>

#include <Poco/Environment.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include <gnu/libc-version.h>
#include <valgrind/callgrind.h>

namespace {

using Log = void (*)(Zyr::Logger& logger, int entries);

const Bench::Record::Lines lines;

void logStandard(Zyr::Logger& logger, int entries)
{
    for (int number = 0; number < entries; ++number)
        Bench::logStandard(logger, lines, number);
}

void logPlain(Zyr::Logger& logger, int entries)
{
    const QString text = QStringLiteral("The pressure of the pump is what it should be");
    for (int number = 0; number < entries; ++number)
        logger.out(Zyr::Info, text, __FILE__, __LINE__).endl();
}

void logDisabled(Zyr::Logger& logger, int entries)
{
    for (int number = 0; number < entries; ++number)
        Bench::logEntry(logger, Zyr::Debug, lines, number);
}

void logDisabledMacro(Zyr::Logger&, int entries)
{
    for (int number = 0; number < entries; ++number) {
        ZYR_DEBUG("pump %1 on line %2 has a pressure of %3 bar")
            .arg(number)
            .arg(lines.of(number))
            .arg(Bench::Record::pressure(number))
            .endl();
    }
}

void logEnabledMacro(Zyr::Logger& logger, int entries)
{
    for (int number = 0; number < entries; ++number) {
        ZYR_INFO_TO(logger, "pump %1 on line %2 has a pressure of %3 bar")
            .arg(1000 + number % 1000)
            .arg(lines.of(number))
            .arg(Bench::Record::pressure(number))
            .endl();
    }
}

void logRepeated(Zyr::Logger& logger, int entries)
{
    for (int number = 0; number < entries; ++number)
        Bench::logStandard(logger, lines, 0);
}

struct Path
{
    const char* name;
    Log log;
    const char* settings;
    bool hasListener;
    int written; ///< records per thousand entries
};

constexpr const char* usual = "";
constexpr const char* remembering = "checkRepeatedMsg=true\namountRepeatedMsg=100\nmaxRepeatedMsgCounter=1000000\n";
constexpr const char* including = "textFilters=reservoir|pressure\n";

constexpr Path paths[] = {
    {"standard", logStandard, usual, false, 1000},
    {"plain-text", logPlain, usual, false, 1000},
    {"macro", logEnabledMacro, usual, false, 1000},
    {"disabled", logDisabled, usual, false, 0},
    {"disabled-macro", logDisabledMacro, usual, false, 0},
    {"repeated", logRepeated, remembering, false, 0},
    {"new-among-100", logStandard, remembering, false, 1000},
    {"include-filter", logStandard, including, false, 1000},
    {"dropped-by-filter", logStandard, "textFilters=reservoir\n", false, 0},
    {"listener", logStandard, usual, true, 1000},
};

class Listener : public Zyr::Logger::LogListener
{
public:
    void handleMessage(QString, QString, QString) override { ++calls; }

    int calls = 0;
};

/// Counts the calling thread only.
void measure(const Path& path, Zyr::Logger& logger, int entries)
{
    path.log(logger, 1000); // starts threads, fills caches
    // The writer's thread opens the fast path into the queue; under valgrind it runs only when this one pauses.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    CALLGRIND_TOGGLE_COLLECT;
    path.log(logger, entries);
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(path.name);
}

void printVersions()
{
    const Poco::UInt32 poco = Poco::Environment::libraryVersion();
    std::printf("%s, Qt %s, POCO %u.%u.%u, glibc %s\n", Bench::compiler, qVersion(), poco >> 24, poco >> 16 & 255,
                poco >> 8 & 255, gnu_get_libc_version());
}

bool check(const char* name, const char* what, std::ptrdiff_t found, std::ptrdiff_t expected)
{
    if (found != expected)
        std::fprintf(stderr, "%s: %td %s, where %td should be\n", name, found, what, expected);
    return found == expected;
}

} // namespace

int main(int count, char* words[])
{
    const int entries = count == 2 ? std::atoi(words[1]) : 0;
    if (entries < 1000 || entries % 1000 != 0) {
        std::fprintf(stderr, "usage: %s <entries per path, in whole thousands>\n", words[0]);
        return 2;
    }
    const QCoreApplication application(count, words);
    QCoreApplication::setApplicationName(QStringLiteral("instructions"));
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    Bench::Loggers loggers;
    static Listener listener;
    for (const Path& path : paths) {
        Zyr::Logger& logger = loggers.make(path.name, path.settings);
        if (path.hasListener)
            logger.registerLogListener(&listener);
        measure(path, logger, entries);
    }
    loggers.finish();

    const int thousands = 1 + entries / 1000;
    bool right = check("listener", "calls", listener.calls, thousands * 1000);
    for (const Path& path : paths) {
        const int first = path.log == logRepeated ? 1 : 0; // what is repeated
        right = check(path.name, "lines", loggers.lines(path.name), thousands * path.written + first) && right;
    }
    printVersions();
    return right ? 0 : 1;
}
