// How a process with loggers begins and ends: its output, its log files, its exit code.

#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <Poco/Logger.h>

#include <cstdlib>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

void (*afterMainLogger)() = [] {};
const auto lastToGo = qScopeGuard([] { afterMainLogger(); }); // made before the main logger, so destroyed after it

void count(int from, int to)
{
    for (int i = from; i < to; ++i)
        say(QString::number(i));
}

Zyr::LogMessage* early = nullptr;

void logEarly(QtMsgType, const QMessageLogContext&, const QString&)
{
    if (early)
        return;
    early = &Zyr::Logger::instance().out(Zyr::Info, u"early %1"_s);
    Zyr::Logger::instance().setLogFilePath(u"/nowhere/at.all"_s);
    say(u'<' + Zyr::Logger::instance().getLogFilePath() + u'>');
}

/// One is run in a process of its own, without an application object.
class Scenarios : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    // A main logger that waits for itself or is made twice when Qt's message handler logs what Qt says about the
    // settings; an entry begun without a chain that is written after all; a path given then that is remembered.
    void logsWhileItBegins()
    {
        qInstallMessageHandler(logEarly);
        say(u"usable"_s);
        early->arg(1).endl();
    }

    // A load that holds, while it has Qt read values, what any other load needs: Qt's message handler makes the main
    // logger on another thread.
    void makesMainLoggerWhileAnotherBegins()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {
            static std::atomic<bool> isFirst = true;
            if (isFirst.exchange(false))
                std::thread(say, u"warned"_s).join();
        });
        Zyr::ClassLogger(u"Valve"_s).cLogInfo(u"usable"_s).endl();
    }

    // A load that continues after the refused value, stays in its group, announces changes, or is never repeated.
    void refusesRotation()
    {
        say(u"dropped"_s);
        QSettings settings(u"own.ini"_s, QSettings::IniFormat);
        settings.setValue(u"LoggerFileChannel/rotation"_s, u"sometimes"_s);
        right &= !Zyr::Logger::instance().createLoggerBySettings(settings);
        right &= settings.group().isEmpty() && !settings.contains(u"LoggerFileChannel/archive"_s);
        settings.setValue(u"LoggerFileChannel/rotation"_s, u"never"_s);
        settings.setValue(u"LoggerFileChannel/pattern"_s, u"%p %t"_s);
        right &= Zyr::Logger::instance().createLoggerBySettings(settings);
        say(u"mended"_s);
    }

    // Two main loggers, of which one has no POCO logger and drops its entries; an empty variable taken for a directory.
    void beginsOnTwoThreads()
    {
        qputenv("XDG_DATA_HOME", qgetenv("QUADEL_CURRENT_LOG_LOCATION"));
        qputenv("QUADEL_CURRENT_LOG_LOCATION", "");
        std::thread other(say, u"x"_s);
        say(u"x"_s);
        other.join();
    }

    // A crash or a lost entry when destructors of static objects log.
    void logsInDestructors()
    {
        afterMainLogger = [] { say(u"after"_s); };
        say(u"first"_s);
        static const auto beforeMainLogger = qScopeGuard([] { say(u"before"_s); });
    }

    // A main logger that is not made any more, or never ended, once static destruction has begun.
    void beginsAtExit()
    {
        afterMainLogger = [] { say(u"late"_s); };
    }

    // A chain touched after POCO's static objects have destroyed it, by a logger that nobody destroys.
    void leaksClassLogger()
    {
        static auto& leaked = *new Zyr::ClassLogger(u"Valve"_s);
        afterMainLogger = [] { leaked.cLogInfo(u"after"_s).endl(); };
        leaked.cLogInfo(u"before"_s).endl();
    }

    // POCO shut down by the main logger's final flush, its file left open or closed for good, or an archive for each
    // record that opens it again.
    void flushesMainLogger()
    {
        Zyr::ClassLogger valve(u"Valve"_s);
        Zyr::Logger::instance().flushFinal();
        valve.cLogInfo(u"goes on"_s).endl();
        say(u"opened again"_s);
    }

    // A chain touched after POCO let go of it; an operation that waits or prints more than it should; lines that cannot
    // be printed and are kept in memory for ever.
    void shutsDown()
    {
        QElapsedTimer time;
        time.start();
        auto valve = std::make_unique<Zyr::ClassLogger>(u"Valve"_s);
        Zyr::Logger& logger = valve->getLogger();
        Zyr::LogMessage& begun = valve->cLogInfo(u"begun before"_s);
        logger.flushFinal();
        right &= !logger.isEnabled(Zyr::Emerg) && !Zyr::Logger::instance().isEnabled(Zyr::Emerg);
        begun.endl();
        valve->cLogInfo(u"a"_s).endl();
        logger.flushLog();
        logger.setLogFilePath(u"moved.log"_s);
        QSettings settings(u"own.ini"_s, QSettings::IniFormat);
        right &= !logger.createLoggerBySettings(settings) && !logger.onConfigFileChanged(settings, false);
        Zyr::ClassLogger(u"Later"_s).cLogInfo(u"b"_s).endl();
        logger.flushFinal();
        right &= logger.getLogFilePath().isEmpty();
        const int output = dup(STDOUT_FILENO);
        dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
        say(u"lost"_s);
        dup2(output, STDOUT_FILENO);
        say(u"c"_s);
        valve.reset();
        right &= time.elapsed() < 1000;
    }

    // Records that are still queued when the program ends, or that a logger nobody destroys has.
    void endsWithBacklog() { count(0, 200'000); }
    void leaksBacklog()
    {
        static auto& leaked = *new Zyr::ClassLogger(u"Valve"_s);
        for (int i = 0; i < 200'000; ++i)
            leaked.cLogInfo(QString::number(i)).endl();
    }

    // A final flush that leaves another logger's records in memory.
    void flushesBacklogs()
    {
        Zyr::ClassLogger valve(u"Valve"_s);
        count(0, 200'000);
        valve.getLogger().flushFinal();
        _exit(0);
    }

    // A chain touched after the application itself shut POCO down, or queued records that are lost with it.
    void shutsPocoDown()
    {
        Zyr::Logger& logger = Zyr::Logger::instance();
        auto valve = std::make_unique<Zyr::ClassLogger>(u"Valve"_s);
        count(0, 200'000);
        Poco::Logger::destroy("Valve");
        valve->cLogInfo(u"a"_s).endl();
        valve.reset();
        Poco::Logger::shutdown();
        right &= !logger.isEnabled(Zyr::Emerg);
        QSettings settings(u"own.ini"_s, QSettings::IniFormat);
        right &= !logger.createLoggerBySettings(settings) && !logger.onConfigFileChanged(settings, false);
        logger.setLogFilePath(u"moved.log"_s);
        logger.setLogFileProperty(u"flush"_s, u"true"_s);
        right &= logger.getLogFilePath().isEmpty() && !QFile::exists(u"moved.log"_s);
        logger.flushLog();
        say(u"b"_s);
    }

    // A thread's cached objects that are made from Qt's static objects after those are destroyed.
    void beginsThreadAtExit()
    {
        Zyr::Logger::instance();
        afterMainLogger = [] { std::thread([] { say(u"after"_s); }).join(); };
    }

    // An entry that goes on with a chain that has ended under it, or that waits for itself.
    void shutsPocoDownInAConversion()
    {
        struct Last
        {
        };
        QMetaType::registerConverter<Last, QString>([](const Last&) {
            Poco::Logger::shutdown();
            return u"x"_s;
        });
        QElapsedTimer time;
        time.start();
        say(u"before"_s);
        Zyr::Logger::instance().out(Zyr::Info, u"%1"_s).arg(QVariant::fromValue(Last())).endl();
        say(u"after"_s);
        right &= time.elapsed() < 4000;
    }

    // A socket that cannot be opened by its name in /proc; one whose other users find it changed; lines torn, lost or
    // sent with a signal, where it is full or has no reader.
    void writesToASocket()
    {
        int ends[2] = {};
        right &= socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0;
        const int output = dup(STDOUT_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        count(0, 50'000);
        QByteArray received;
        while (received.count('\n') < 50'000) {
            char block[1'000];
            const ssize_t size = read(ends[0], block, sizeof block);
            right &= size > 0;
            received.append(block, qMax<ssize_t>(size, 0));
        }
        right &= (fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) == 0;
        std::ofstream("Quadel.log") << received.toStdString();
        close(ends[0]);
        say(u"nobody reads"_s);
        dup2(output, STDOUT_FILENO);
    }

    // A child that waits for threads it does not have, or that writes what it inherited a second time.
    void forks()
    {
        say(u"0"_s);
        std::thread flood(count, 1, 200'000);
        for (int i = 0; i < 10; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(5);
                afterMainLogger = [] { _exit(0); }; // skips what is not the library's, above all a leak checker
                std::exit(1);
            }
            int status = -1;
            right &= waitpid(child, &status, 0) == child && status == 0;
        }
        flood.join();
    }
};

} // namespace

class tst_Process : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void scenario_data()
    {
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<QByteArray>("channelKeys");
        const auto row = [](const char* name, const QStringList& log, const char* output = "", const char* keys = "") {
            QTest::newRow(name) << log << QByteArray(output) << QByteArray(keys);
        };
        const QString shutdown = u"notice <SYS> Logger shutdown"_s;
        QStringList numbers;
        for (int i = 0; i < 200'000; ++i)
            numbers.append(u"info %1"_s.arg(i));
        row("logsWhileItBegins", {u"info usable"_s}, "Invalid logger - early %1\nInvalid logger - <>\n");
        row("makesMainLoggerWhileAnotherBegins", {u"info warned"_s, u"info usable"_s});
        row("refusesRotation", {u"info mended"_s}, "\nException on creating logger\n\nException on creating logger\n",
            "rotation=sometimes");
        row("beginsOnTwoThreads", {u"info x"_s, u"info x"_s});
        row("logsInDestructors", {u"info first"_s, u"info before"_s}, "Invalid logger - after\n");
        row("beginsAtExit", {u"info late"_s});
        row("leaksClassLogger", {u"info before"_s}, "Invalid logger - after\n");
        row("flushesMainLogger", {shutdown, u"info opened again"_s, u"info goes on"_s}, "", "rotateOnOpen=true");
        row("shutsDown", {shutdown},
            "Invalid logger - a\nInvalid logger - b\nInvalid logger - Logger shutdown\nInvalid logger - c\n");
        row("endsWithBacklog", numbers, "", "flush=true");
        row("leaksBacklog", numbers, "", "flush=true");
        row("flushesBacklogs", QStringList(numbers) << shutdown, "", "flush=true");
        row("shutsPocoDown", numbers, "Invalid logger - a\nInvalid logger - b\n", "flush=true");
        row("beginsThreadAtExit", {}, "Invalid logger - after\n");
        row("shutsPocoDownInAConversion", {u"info before"_s}, "Invalid logger - after\n");
        for (const char* const path : {"path=/dev/stdout", "path=/dev/fd/1", "path=/proc/self/fd/1"})
            row("writesToASocket", numbers.mid(0, 50'000), "info nobody reads\n", path);
        row("forks", numbers);
    }

    void scenario()
    {
        QFETCH(const QByteArray, channelKeys);
        const TestPlace place;
        // The filters are a value of a type that Qt does not know, which it warns of.
        const char* const filters = "textFilters=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x2x\\0)";
        place.write(u"Quadel_Log.ini"_s, settingsFile(filters, channelKeys));
        place.write(u"_Valve_Log.ini"_s, settingsFile(filters, channelKeys));
        const int status = runScenario(place, QString::fromUtf8(QTest::currentDataTag()));
        QVERIFY2(status == 0, place.read(u"error"_s).constData());
        QTEST(place.read(u"output"_s), "output");
        QTEST(place.lines(u"Quadel.log"_s) + place.lines(u"_Valve.log"_s), "log");
    }
};

int main(int count, char* words[])
{
    return runTest(count, words, Scenarios(), tst_Process());
}

#include "tst_process.moc"
