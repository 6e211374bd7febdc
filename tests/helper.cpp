// Scenarios of a process's life, one per argument, without an application object. tst_process looks at what they leave
// behind; the exit code tells what only the scenario itself sees.

#include "RecordingListener.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtCore/QScopeGuard>
#include <QtCore/QSettings>

#include <cstdlib>
#include <map>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

void (*afterMainLogger)() = [] {};
const auto lastToGo = qScopeGuard([] { afterMainLogger(); }); // made before the main logger, so destroyed after it

bool say(const QString& text)
{
    Zyr::Logger::instance().out(Zyr::Info, text).endl();
    return true;
}

bool count(int from, int to)
{
    for (int i = from; i < to; ++i)
        say(QString::number(i));
    return true;
}

QString besideLog(const QString& name)
{
    return qEnvironmentVariable("QUADEL_CURRENT_LOG_LOCATION") + u'/' + name;
}

// An entry begun without a chain is written after all, a path given then is remembered. The way in is a message handler
// that logs what Qt says about a value while the settings are read for the first time.
alignas(Zyr::Logger) std::byte storage[sizeof(Zyr::Logger)];
auto& unfinished = reinterpret_cast<Zyr::Logger&>(storage);
Zyr::LogMessage* early = nullptr;

void logEarly(QtMsgType, const QMessageLogContext&, const QString&)
{
    if (early)
        return;
    early = &unfinished.out(Zyr::Info, u"early %1"_s);
    unfinished.setLogFilePath(u"/nowhere/at.all"_s);
    unfinished.out(Zyr::Info, u'<' + unfinished.getLogFilePath() + u'>').endl();
}

bool becomesUsable()
{
    qInstallMessageHandler(logEarly);
    new (&unfinished) Zyr::Logger(u"Valve"_s, u"_Valve.log"_s, u"_Valve_Log.ini"_s);
    early->arg(1).endl();
    unfinished.out(Zyr::Info, u"usable"_s).endl();
    unfinished.~Logger();
    return true;
}

// A load that goes on behind the refused value, stays in its group, tells of changes, or is never made up for.
bool refusesRotation()
{
    Zyr::Logger& main = Zyr::Logger::instance();
    QSettings settings(besideLog(u"own.ini"_s), QSettings::IniFormat);
    settings.setValue(u"LoggerFileChannel/rotation"_s, u"sometimes"_s);
    const bool wrong = !say(u"dropped"_s) || main.createLoggerBySettings(settings) || !settings.group().isEmpty() ||
                       settings.contains(u"LoggerFileChannel/archive"_s);
    settings.setValue(u"LoggerFileChannel/rotation"_s, u"never"_s);
    settings.setValue(u"LoggerFileChannel/pattern"_s, u"%t"_s);
    return !wrong && main.createLoggerBySettings(settings) && say(u"mended"_s);
}

// Two main loggers, of which one has no POCO logger and drops its entries; an empty variable taken for a directory.
bool beginsOnTwoThreads()
{
    qputenv("XDG_DATA_HOME", qgetenv("QUADEL_CURRENT_LOG_LOCATION"));
    qputenv("QUADEL_CURRENT_LOG_LOCATION", "");
    std::thread other(say, u"x"_s);
    say(u"x"_s);
    other.join();
    return true;
}

// A crash, or an entry that vanishes, when static objects log as they are destroyed.
bool logsInDestructors()
{
    afterMainLogger = [] { say(u"after"_s); };
    say(u"first"_s);
    static const auto beforeMainLogger = qScopeGuard([] { say(u"before"_s); });
    return true;
}

// A main logger that is not made any more, or never ended, once static destruction has begun.
bool beginsAtExit()
{
    afterMainLogger = [] { say(u"late"_s); };
    return true;
}

// POCO shut down by the main logger's final flush, its file left open or closed for good.
bool flushesMainLogger()
{
    Zyr::ClassLogger valve(u"Valve"_s);
    Zyr::Logger::instance().flushFinal();
    valve.cLogInfo(u"goes on"_s).endl();
    return say(u"opened again"_s);
}

// A chain touched after POCO let go of it, an operation that waits or prints more than it should.
bool shutsDown()
{
    Zyr::ClassLogger valve(u"Valve"_s);
    Zyr::Logger& logger = valve.getLogger();
    Zyr::LogMessage& begun = valve.cLogInfo(u"begun before"_s);
    logger.flushFinal();
    begun.endl();
    valve.cLogInfo(u"a"_s).endl();
    logger.flushLog();
    logger.setLogFilePath(besideLog(u"moved.log"_s));
    const RecordingListener listener(logger);
    QSettings settings(besideLog(u"own.ini"_s), QSettings::IniFormat);
    const bool loaded = logger.createLoggerBySettings(settings) || logger.onConfigFileChanged(settings, false);
    Zyr::ClassLogger(u"Later"_s).cLogInfo(u"b"_s).endl();
    logger.flushFinal();
    return !loaded && logger.getLogFilePath().isEmpty() && listener.texts().isEmpty() && say(u"c"_s);
}

// Records that are still queued when the program ends.
bool endsWithBacklog()
{
    return count(0, 200'000);
}

// A child that waits for threads it does not have, or that writes what it inherited a second time.
bool forks()
{
    say(u"0"_s);
    std::thread flood(count, 1, 200'000);
    bool ended = true;
    for (int i = 0; i < 10; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(5);
            afterMainLogger = [] { _exit(0); }; // the rest, a leak checker above all, is no concern of the library
            std::exit(1);
        }
        int status = -1;
        ended = waitpid(child, &status, 0) == child && status == 0 && ended;
    }
    flood.join();
    return ended;
}

} // namespace

int main(int, char* words[])
{
    const std::map<std::string, bool (*)()> scenarios = {{"becomesUsable", becomesUsable},
                                                         {"refusesRotation", refusesRotation},
                                                         {"beginsOnTwoThreads", beginsOnTwoThreads},
                                                         {"logsInDestructors", logsInDestructors},
                                                         {"beginsAtExit", beginsAtExit},
                                                         {"flushesMainLogger", flushesMainLogger},
                                                         {"shutsDown", shutsDown},
                                                         {"endsWithBacklog", endsWithBacklog},
                                                         {"forks", forks}};
    return scenarios.at(words[1])() ? 0 : 1;
}
