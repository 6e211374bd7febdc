// Forks and ends of processes whose threads go on logging: who writes what, what is left alone, and that all end.

#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <Poco/Channel.h>
#include <Poco/Logger.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <list>
#include <thread>

#include <pthread.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int forks = 150;
constexpr int burst = 200;

std::atomic<bool> storeHangs = false;
std::atomic<bool> storeIsSlow = false;
std::atomic<bool> inHungWrite = false;
std::atomic<int> forked = 0;
std::atomic<bool> inRelease = false;
std::atomic<bool> forking = false;

/// Released under POCO's lock, logs and ends the main logger's queue there, when a fork has begun.
class SlowlyReleased : public Poco::Channel
{
public:
    void log(const Poco::Message&) override {}

protected:
    ~SlowlyReleased() override
    {
        inRelease = true;
        while (!forking)
            usleep(1000);
        usleep(100'000); // in which the fork takes what locks it gets
        say(u"released"_s);
        chain->close();
    }

private:
    Poco::Channel::Ptr chain = Poco::Logger::get("MainLogger").getChannel();
};

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
    std::exit(right ? 0 : 1);
}

bool ended(pid_t child)
{
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

/// Replaces the C library's, to act as a store that hangs.
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

/// One is run in a process of its own, without an application object.
class Scenarios : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    // A child that waits for a thread it does not have, writes what its parent queued or held back, or loses or repeats
    // what it logs itself; a parent that loses records while it forks.
    void forksWhileOthersLog()
    {
        Zyr::ClassLogger valve(u"Valve"_s);
        for (int i = 0; i < 3; ++i)
            valve.cLogInfo(u"x"_s).endl();
        Zyr::Logger::instance();
        std::thread a(flood, u'a');
        std::thread b(flood, u'b');
        QSettings settings(u"Quadel_Log.ini"_s,
                           QSettings::IniFormat); // here: Qt does not make its locks anew in a child
        std::thread loads([&] {
            while (forked < forks)
                Zyr::Logger::instance().createLoggerBySettings(settings);
        });
        const auto idle = [&] { valve.getLogger().flushLog(); };
        const auto log = [] { say(u"child %1"_s.arg(forked)); };
        const auto forkAgain = [] {
            right &= ended(start([] { say(u"grandchild %1"_s.arg(forked)); }));
            say(u"child %1"_s.arg(forked));
        };
        const auto makeAndMove = [&] {
            Zyr::ClassLogger(u"Made"_s).cLogInfo(u"made %1"_s.arg(forked)).endl();
            Zyr::Logger::instance().setLogFilePath(u"moved.log"_s);
            say(u"moved %1"_s.arg(forked));
        };
        const std::function<void()> works[] = {idle, log, forkAgain, makeAndMove};
        std::list<pid_t> children;
        for (; forked < forks; ++forked) {
            children.push_back(start(works[forked % 4]));
            if (children.size() > 8) {
                right &= ended(children.front());
                children.pop_front();
            }
        }
        right &= std::all_of(children.begin(), children.end(), ended);
        for (std::thread* const thread : {&a, &b, &loads})
            thread->join();
        valve.getLogger().flushLog();
    }

    // A fork that waits until the store answers; a record that names the other process.
    void forksWhileAWriteHangs()
    {
        storeHangs = true;
        say(QString::number(getpid()));
        while (!inHungWrite)
            usleep(1000);
        right = ended(start([] {
            storeHangs = false;
            say(QString::number(getpid()));
        }));
        storeHangs = false;
    }

    // A fork that has locked a file and waits for a logger's end, while that waits for POCO's lock and its owner for
    // the file.
    void forksWhilePocoReleases()
    {
        alarm(20);
        say(u"parent"_s);
        auto* const valve = new Zyr::Logger(u"Valve"_s, u"_Valve.log"_s, u"_Valve_Log.ini"_s);
        Poco::Logger::create("Released", Poco::Channel::Ptr(new SlowlyReleased));
        std::thread release([] { Poco::Logger::destroy("Released"); });
        while (!inRelease)
            usleep(1000);
        std::thread end([valve] { delete valve; });
        while (valve->isEnabled(Zyr::Emerg))
            usleep(1000);
        usleep(50'000); // from there to POCO's lock
        pthread_atfork([] { forking = true; }, nullptr, nullptr);
        right = ended(start([] { say(u"child"_s); }));
        release.join();
        end.join();
    }

    // A child that never logs and keeps its parent's lock: the next one appends for ever, without rotation.
    void leavesChildBehind()
    {
        say(u"first"_s);
        start([] {
            while (access("done", F_OK) != 0)
                usleep(1000);
        });
    }

    // A child that goes on as a daemon and lets the file grow, since it is not its first writer.
    void becomesDaemon()
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
    }

    // An end that waits for an empty queue while other threads fill it, or that loses what was queued before.
    void exitsWhileOthersLog()
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
    }
};

} // namespace

class tst_Forks : public QObject
{
    Q_OBJECT
    std::unique_ptr<const TestPlace> place;

    void run(const char* scenario)
    {
        const int status = runScenario(*place, QString::fromLatin1(scenario));
        QVERIFY2(status == 0, place->read(u"error"_s).constData());
    }

    static QStringList sorted(QStringList lines)
    {
        lines.sort();
        return lines;
    }

private Q_SLOTS:
    void init()
    {
        place = std::make_unique<const TestPlace>();
        for (const char* const name : {"Quadel", "_Made", "_Done"})
            place->write(QString::fromLatin1(name) + u"_Log.ini"_s, settingsFile({}, "queueSize=64 K"));
    }

    void forksWhileOthersLog()
    {
        place->write(u"_Valve_Log.ini"_s, settingsFile("checkRepeatedMsg=true\namountRepeatedMsg=9"));
        run("forksWhileOthersLog");
        QStringList main, made, moved;
        for (int i = 0; i < forks * burst; ++i)
            main << u"info a%1"_s.arg(i) << u"info b%1"_s.arg(i);
        for (int i = 1; i < forks; i += 4)
            main << u"info child %1"_s.arg(i);
        for (int i = 2; i < forks; i += 4)
            main << u"info grandchild %1"_s.arg(i) << u"info child %1"_s.arg(i);
        for (int i = 3; i < forks; i += 4) {
            made << u"info made %1"_s.arg(i);
            moved << u"info moved %1"_s.arg(i);
        }
        QCOMPARE(sorted(place->lines(u"Quadel.log"_s)), sorted(main));
        QCOMPARE(sorted(place->lines(u"_Made.log"_s).filter(u"made"_s)), sorted(made));
        QCOMPARE(sorted(place->lines(u"moved.log"_s)), sorted(moved));
        QCOMPARE(place->lines(u"_Valve.log"_s), QStringList({u"info x"_s, u"info x... (repeated 2 times)."_s}));
    }

    void forksWhileAWriteHangs()
    {
        place->write(u"Quadel_Log.ini"_s, settingsFile({}, "pattern=%P-%t"));
        run("forksWhileAWriteHangs");
        const QStringList lines = place->lines(u"Quadel.log"_s);
        QCOMPARE(QSet(lines.begin(), lines.end()).size(), 2);
        for (const QString& line : lines)
            QCOMPARE(line.section(u'-', 0, 0), line.section(u'-', 1));
    }

    void forksWhilePocoReleases()
    {
        place->write(u"Quadel_Log.ini"_s, settingsFile("checkRepeatedMsg=true"));
        run("forksWhilePocoReleases");
        QCOMPARE(place->lines(u"Quadel.log"_s), QStringList({u"info parent"_s, u"info released"_s, u"info child"_s}));
    }

    void leavesTheLockToTheNextOne()
    {
        run("leavesChildBehind");
        run("leavesChildBehind");
        QCOMPARE(place->read(u"error"_s), QByteArray());
        place->write(u"done"_s, {});
        QCOMPARE(place->lines(u"Quadel.log"_s), QStringList(2, u"info first"_s));
    }

    void rotatesInTheDaemon()
    {
        place->write(u"Quadel_Log.ini"_s, settingsFile({}, "rotation=1 K\ncompress=false"));
        run("becomesDaemon");
        QTRY_VERIFY_WITH_TIMEOUT(place->lines(u"_Done.log"_s).contains(u"info x"_s), 20000);
        QTRY_COMPARE(place->lines(u"Quadel.log.0"_s).size() + place->lines(u"Quadel.log"_s).size(), 4);
        QVERIFY(!place->lines(u"Quadel.log"_s).contains(u"info parent"_s));
        QCOMPARE(place->read(u"error"_s), QByteArray());
    }

    void exitsWhileOthersLog()
    {
        run("exitsWhileOthersLog");
        QHash<QChar, int> next;
        bool whole = true;
        for (const QString& line : place->lines(u"Quadel.log"_s))
            whole &= line.mid(6).toInt() == next[line[5]]++;
        QVERIFY(whole && !next.isEmpty());
    }
};

int main(int count, char* words[])
{
    return runTest(count, words, Scenarios(), tst_Forks());
}

#include "tst_forks.moc"
