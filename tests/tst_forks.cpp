// Forks and ends of processes whose threads go on logging: who writes what, what is left alone, and that all end.

#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <Poco/Logger.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <thread>

#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int forks = 48;
constexpr bool sanitized = true; // a leak checker above all is no concern of the library
#else
constexpr int forks = 150;
constexpr bool sanitized = false;
#endif
constexpr int burst = 200;

std::atomic<bool> storeHangs = false;
std::atomic<bool> storeIsSlow = false;
std::atomic<bool> inHungWrite = false;
std::atomic<int> forked = 0;
const auto lastToGo = qScopeGuard([] { // made before the main logger
    if (sanitized)
        _exit(0);
});

void say(const QString& text)
{
    Zyr::Logger::instance().out(Zyr::Info, text).endl();
}

void flood(char16_t name)
{
    for (int i = 0; i < forks * burst; ++i) {
        while (i > (forked + 1) * burst)
            std::this_thread::yield();
        say(name + QString::number(i));
    }
}

/// A child that does `work` and then ends as programs do. One that hangs is killed.
pid_t start(const std::function<void()>& work)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    alarm(20);
    work();
    std::exit(0);
}

bool ended(pid_t child)
{
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

/// Takes the place of the C library's, to be a store that does not answer.
extern "C" ssize_t writev(int file, const iovec* pieces, int count)
{
    while (storeHangs) {
        inHungWrite = true;
        usleep(1000);
    }
    if (storeIsSlow)
        usleep(20'000);
    return syscall(SYS_writev, file, pieces, count);
}

namespace {

/// One is run in a process of its own, without an application object. Returns whether all was well.
struct Scenarios
{
    static bool forksWhileOthersLog()
    {
        Zyr::ClassLogger valve(u"Valve"_s);
        for (int i = 0; i < 3; ++i)
            valve.cLogInfo(u"x"_s).endl();
        auto* const gone = new Zyr::ClassLogger(u"Gone"_s);
        Poco::Logger::destroy("Gone");
        Zyr::Logger::instance();
        std::thread a(flood, u'a');
        std::thread b(flood, u'b');
        QSettings settings(u"own.ini"_s, QSettings::IniFormat); // here: Qt does not make its locks anew in a child
        std::thread loads([&] {
            while (forked < forks) {
                gone->cLogInfo(u"no chain"_s).endl();
                Zyr::Logger::instance().createLoggerBySettings(settings);
            }
        });
        const auto log = [] { say(u"child %1"_s.arg(forked)); };
        const auto idle = [&] { valve.getLogger().flushLog(); };
        const std::function<void()> works[] = {
            idle,
            log,
            idle,
            [&] {
                log();
                const bool well = ended(start([] { say(u"grandchild %1"_s.arg(forked)); }));
                say(well ? u"well %1"_s.arg(forked) : u"ill"_s);
            },
            idle,
            [&] {
                gone->cLogInfo(u"no chain"_s).endl();
                Zyr::ClassLogger(u"Made"_s).cLogInfo(u"made %1"_s.arg(forked)).endl();
                Zyr::Logger::instance().setLogFilePath(u"moved.log"_s);
                say(u"moved %1"_s.arg(forked));
                QSettings own(u"child.ini"_s, QSettings::IniFormat);
                Zyr::Logger::instance().createLoggerBySettings(own);
                say(u"loaded %1"_s.arg(forked));
            }};
        bool well = true;
        std::list<pid_t> children;
        for (; forked < forks; ++forked) {
            children.push_back(start(works[std::size_t(forked) % std::size(works)]));
            if (children.size() > 8) {
                well &= ended(children.front());
                children.pop_front();
            }
        }
        for (const pid_t child : children)
            well &= ended(child);
        for (std::thread* const thread : {&a, &b, &loads})
            thread->join();
        valve.getLogger().flushLog();
        return well;
    }

    static bool forksWhileItBegins()
    {
        std::list<pid_t> processes;
        for (int i = 0; i < 30; ++i) {
            processes.push_back(start([] {
                std::thread first(say, u"x"_s);
                const bool childEnded = ended(start([] { say(u"x"_s); }));
                first.join();
                _exit(childEnded ? 0 : 1);
            }));
        }
        return std::count_if(processes.begin(), processes.end(), ended) == 30;
    }

    static bool forksWhileAWriteHangs()
    {
        storeHangs = true;
        say(u"parent"_s);
        while (!inHungWrite)
            usleep(1000);
        const bool well = ended(start([] {
            storeHangs = false;
            say(u"child"_s);
        }));
        storeHangs = false;
        return well;
    }

    static bool leavesChildBehind()
    {
        say(u"first"_s);
        start([] {
            while (access("done", F_OK) != 0)
                usleep(1000);
        });
        return true;
    }

    static bool saysMore()
    {
        say(u"more"_s);
        return true;
    }

    static bool becomesDaemon()
    {
        say(u"parent"_s);
        const pid_t parent = getpid();
        start([parent] {
            while (getppid() == parent)
                usleep(1000);
            for (int i = 0; i < 3; ++i)
                say(QString(600, u'x'));
            Zyr::ClassLogger(u"Done"_s).cLogInfo(u"x"_s).endl();
        });
        return true;
    }

    static bool startsPrograms()
    {
        say(u"x"_s);
        while (access("Quadel.log", F_OK) != 0)
            usleep(1000);
        return std::system("ls -l /proc/self/fd/ | grep -F .log >&2") != 0;
    }

    static bool exitsWhileOthersLog()
    {
        storeIsSlow = true;
        for (const char16_t name : {u'a', u'b'}) {
            std::thread([name] {
                for (int i = 0;; ++i)
                    say(name + QString::number(i));
            }).detach();
        }
        std::thread([] {
            while (!QFileInfo(u"Quadel.log"_s).size())
                usleep(1000);
            alarm(20);
            std::exit(0);
        }).join();
        return false;
    }
};

} // namespace

class TestForks : public QObject
{
    Q_OBJECT

    static void run(const TestPlace& place, const QString& scenario)
    {
        const int status = runScenario(place, scenario);
        QVERIFY2(status == 0, place.read(u"error"_s).constData());
    }

    static QStringList sorted(QStringList lines)
    {
        lines.sort();
        return lines;
    }

private Q_SLOTS:
    // A child that waits for a thread it does not have, writes what its parent queued or held back, or loses or repeats
    // what it logs itself; a parent that loses records while it forks.
    void forksWhileOthersLog()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile({}, "queueSize=64 K"));
        place.write(u"own.ini"_s, settingsFile({}, "queueSize=64 K"));
        place.write(u"child.ini"_s, settingsFile({}, "path=loaded.log"));
        place.write(u"_Valve_Log.ini"_s, settingsFile("checkRepeatedMsg=true\namountRepeatedMsg=9"));
        place.write(u"_Made_Log.ini"_s, settingsFile());
        run(place, u"forksWhileOthersLog"_s);
        QStringList main, made, moved;
        for (int i = 0; i < forks * burst; ++i)
            main << u"info a%1"_s.arg(i) << u"info b%1"_s.arg(i);
        for (int i = 0; i < forks; ++i) {
            if (i % 6 == 1 || i % 6 == 3)
                main << u"info child %1"_s.arg(i);
            if (i % 6 == 3)
                main << u"info grandchild %1"_s.arg(i) << u"info well %1"_s.arg(i);
            if (i % 6 == 5) {
                made << u"info made %1"_s.arg(i);
                moved << u"info moved %1"_s.arg(i) << u"info loaded %1"_s.arg(i);
            }
        }
        QCOMPARE(sorted(place.lines(u"Quadel.log"_s)), sorted(main));
        QCOMPARE(sorted(place.lines(u"_Made.log"_s).filter(u"made"_s)), sorted(made));
        QCOMPARE(sorted(place.lines(u"moved.log"_s) + place.lines(u"loaded.log"_s)), sorted(moved));
        QCOMPARE(place.lines(u"_Valve.log"_s), QStringList({u"info x"_s, u"info x... (repeated 2 times)."_s}));
    }

    // A child that waits for the thread that makes the main logger, or a fork and that thread for each other.
    void forksWhileItBegins()
    {
        const TestPlace place;
        run(place, u"forksWhileItBegins"_s);
    }

    // A fork that waits until the store answers.
    void forksWhileAWriteHangs()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile());
        run(place, u"forksWhileAWriteHangs"_s);
        QCOMPARE(place.lines(u"Quadel.log"_s), QStringList({u"info child"_s, u"info parent"_s}));
    }

    // A child that never logs and keeps its parent's lock: the next one appends for ever, without rotation.
    void leavesTheLockToTheNextOne()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile());
        run(place, u"leavesChildBehind"_s);
        run(place, u"saysMore"_s);
        QCOMPARE(place.read(u"error"_s), QByteArray());
        place.write(u"done"_s, {});
        QCOMPARE(place.lines(u"Quadel.log"_s), QStringList({u"info first"_s, u"info more"_s}));
    }

    // A child that goes on as a daemon and lets the file grow, since it is not its first writer.
    void rotatesInTheDaemon()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile({}, "rotation=1 K\ncompress=false"));
        place.write(u"_Done_Log.ini"_s, settingsFile());
        run(place, u"becomesDaemon"_s);
        QTRY_VERIFY_WITH_TIMEOUT(place.lines(u"_Done.log"_s).contains(u"info x"_s), 20000);
        QTRY_COMPARE(place.lines(u"Quadel.log.0"_s).size() + place.lines(u"Quadel.log"_s).size(), 4);
        QVERIFY(!place.lines(u"Quadel.log"_s).contains(u"info parent"_s));
        QCOMPARE(place.read(u"error"_s), QByteArray());
    }

    // A descriptor that programs started by the application keep open.
    void keepsDescriptorsToItself()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile());
        run(place, u"startsPrograms"_s);
    }

    // An end that waits for an empty queue while other threads fill it, or that loses what was queued before.
    void exitsWhileOthersLog()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile());
        run(place, u"exitsWhileOthersLog"_s);
        QHash<QChar, int> next;
        bool whole = true;
        for (const QString& line : place.lines(u"Quadel.log"_s))
            whole &= line.mid(6).toInt() == next[line[5]]++;
        QVERIFY(whole);
    }
};

int main(int count, char* words[])
{
    const std::map<std::string, bool (*)()> scenarios{
        {"forksWhileOthersLog", Scenarios::forksWhileOthersLog},
        {"forksWhileItBegins", Scenarios::forksWhileItBegins},
        {"forksWhileAWriteHangs", Scenarios::forksWhileAWriteHangs},
        {"leavesChildBehind", Scenarios::leavesChildBehind},
        {"saysMore", Scenarios::saysMore},
        {"becomesDaemon", Scenarios::becomesDaemon},
        {"startsPrograms", Scenarios::startsPrograms},
        {"exitsWhileOthersLog", Scenarios::exitsWhileOthersLog},
    };
    if (const auto found = scenarios.find(count == 3 ? words[2] : ""); found != scenarios.end())
        return found->second() ? 0 : 1;
    const QCoreApplication application(count, words);
    TestForks test;
    return QTest::qExec(&test, count, words);
}

#include "tst_forks.moc"
