// A store that fails, is slow or hangs: every record that is not in the log file is reported as lost or given up, and
// the program goes on and ends.

#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// Prints an expectation of a scenario that is not met; the test fails for anything unexpected on standard error.
#define EXPECT(condition) ((condition) ? void() : void(std::cerr << "not met: " #condition << std::endl))

const char* logFile = std::getenv("FAULTS_LOG"); // where the scenario's records arrive
std::atomic<int> logged = 0;
QString padding;

/// Logs that many records, whose texts begin with their numbers.
void count(int records)
{
    for (int i = 0; i < records; ++i)
        Zyr::Logger::instance().out(Zyr::Info, QString::number(logged++) + u' ' + padding).endl();
}

void shell(const QString& script)
{
    EXPECT(std::system(qPrintable(script)) == 0);
}

QByteArray contents(const char* name)
{
    QFile file(QFile::decodeName(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool holds(const QByteArray& text)
{
    return contents(logFile).contains(text);
}

bool holdsAll()
{
    return QTest::qWaitFor([] { return holds("\"msg\":\"" + QByteArray::number(logged - 1) + ' '); }, 30'000);
}

qint64 status(const char* key)
{
    const QByteArray all = contents("/proc/self/status");
    return all.mid(all.indexOf(key)).simplified().split(' ').value(1).toLongLong();
}

/// For the store, see support/badstore.cpp.
void order(const char* what)
{
    QFile file(u"orders"_s);
    EXPECT(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(what) > 0);
}

/// One is run in a process of its own.
class Scenarios : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    // Records that go on into a file that is no longer there, or are lost for good; a signal. `what`: a script that
    // causes the failure, one that ends it, and "grows" if the file must grow meanwhile, since it cannot be rotated.
    void failure(const QString& what)
    {
        padding = QString(100, u'x');
        count(100);
        EXPECT(holdsAll());
        std::FILE* const end =
            popen(qPrintable(u"read _; "_s + what.section(u'|', 1, 1)), "w"); // starts it while that is possible
        shell(what.section(u'|', 0, 0));
        struct stat before = {};
        stat(logFile, &before);
        for (int i = 0; i < 150; ++i) {
            count(1);
            QThread::msleep(10);
        }
        struct stat after = {};
        const auto isNew = [&] { return stat(logFile, &after) == 0 && after.st_ino != before.st_ino; };
        const bool grows = what.endsWith(u"grows"_s);
        EXPECT(!grows || (!isNew() && after.st_size > before.st_size + 10'000));
        pclose(end);
        EXPECT(QTest::qWaitFor([] { return count(1), holdsAll(); }));
        EXPECT(!grows || QTest::qWaitFor([&] { return count(1), isNew(); }));
    }

    // Half a record in the file; records lost that the file has room for, or that are not reported; archives touched.
    // At the end a queue that grows, a thread for each retry, callers that wait for each record, a shutdown that hangs.
    void fullDisk(const QString& size)
    {
        shell(u"echo '{\"msg\":\"0 old\"}' >store/x.log.0"_s);
        ++logged;
        padding = QString(size.toInt(), u'x');
        const int third = 700'000 / int(padding.size() + 70);
        count(third);
        EXPECT(holdsAll());
        const QString fill = u"cat /dev/zero >store/filler 2>/dev/null; true"_s;
        shell(fill);
        count(third);
        shell(u"rm store/filler"_s);
        EXPECT(QTest::qWaitFor([] { return holds("lost: No space left on device"); }, 10'000));
        count(third);
        EXPECT(holdsAll());
        shell(fill);
        const qint64 threads = status("Threads:");
        const qint64 memory = status("VmRSS:");
        count(20 * third);
        EXPECT(status("VmRSS:") - memory < 4 * 1024 || isSanitized);
        EXPECT(status("Threads:") == threads);
    }

    // Records that are lost, or memory that grows, although the store only needs time; callers that wait for nothing.
    void slow(const QString&)
    {
        padding = QString(100, u'x');
        order("write 20 0 0\n");
        std::thread other(count, 50'000);
        count(50'000);
        other.join();
        EXPECT(status("VmHWM:") < 40'000 || isSanitized);
    }

    // A caller of anything that waits for the store, or one that waits for each record again; a shutdown that hangs.
    // When the store answers again: a write or a record that was given up and is made after all.
    void hangs(const QString& howLong)
    {
        Zyr::Logger& logger = Zyr::Logger::instance();
        Zyr::ClassLogger valve(u"Valve"_s);
        count(10);
        EXPECT(holdsAll());
        order("write -1 0 0\n");
        for (int i = 0; i < 10; ++i)
            valve.cLogInfo(QString::number(logged++) + u' ').endl();
        count(5'000);
        QSettings settings(u"Quadel_Log.ini"_s, QSettings::IniFormat);
        QElapsedTimer time;
        time.start();
        logger.setLogFileProperty(u"flush"_s, u"true"_s);
        logger.setLogFilePath(u"store/y.log"_s);
        logger.createLoggerBySettings(settings);
        logger.getLogFilePath();
        EXPECT(!time.hasExpired(1'000));
        if (howLong == u"forAWhile"_s) {
            order("write 0 0 0\n");
            EXPECT(QTest::qWaitFor([] { return holds("lost: "); }));
            return;
        }
        logger.flushFinal();
        ++logged; // its own record
    }

    // A record that is written again although it is in the file, or taken for written.
    void synchronizesBadly(const QString&)
    {
        count(10);
        EXPECT(holdsAll());
        order("fdatasync 0 5 3\n");
        count(1'000);
    }

    // A load that is refused, a rotation that is postponed, or a failure that is reported, because of a mere EINTR.
    void interrupted(const QString&)
    {
        order("write,fdatasync,fsync,openat,rename,noreplace,exchange,unlinkat,flock 0 4 -2\n");
        padding = QString(100, u'x');
        for (int i = 0; i < 300; ++i) {
            count(1);
            EXPECT(holdsAll());
        }
        shell(u"[ -e store/x.log.9 ] && [ -z \"$(find store -size +5k)\" ]"_s);
    }

    // SIGPIPE; a loss that is not reported; a pipe that is full for a moment taken for a store that fails, so that
    // records are lost or each piece of them is followed by a pause.
    void pipe(const QString&)
    {
        shell(u"mkfifo pipe"_s);
        logFile = "copy.log";
        padding = QString(400, u'x');
        for (int i = 0; i < 3; ++i) {
            std::FILE* const reader = popen("cat pipe >>copy.log & read _; kill $!; wait", "w");
            const std::ofstream opened("pipe"); // returns when there is a reader
            count(1);
            EXPECT(holdsAll());
            count(3'000);
            EXPECT(holdsAll());
            pclose(reader);
            count(100);
            QThread::msleep(50);
        }
    }

    // A device that is locked, rotated or written at a wrong offset, or whose failure is taken for another.
    void device(const QString&) { count(100); }

    // An unknown key that is not reported. A bad value that keeps the chain from being built, or replaces the current
    // one.
    void queueKeys(const QString&)
    {
        QSettings settings(u"other.ini"_s, QSettings::IniFormat);
        for (const QString& size : {u"32 K"_s, u"8 G"_s}) {
            settings.setValue(u"LoggerFileChannel/queueSize"_s, size);
            settings.setValue(u"LoggerFileChannel/queueOverflow"_s, u"maybe"_s);
            settings.setValue(u"LoggerFileChannel/path"_s, QFile::decodeName(logFile));
            Zyr::Logger::instance().createLoggerBySettings(settings);
        }
        count(1);
        EXPECT(holdsAll());
        order("write 300 0 0\n");
        count(5'000);
        EXPECT(QTest::qWaitFor([] { return holds("lost: the queue is full"); }));
    }

    // The time zone of the process's start, or the zone's other half of the year, in records made seconds later.
    void zones(const QString&)
    {
        for (const char* const zone : {"Europe/Dublin", "Australia/Lord_Howe", "<+0545>-5:45"}) {
            setenv("TZ", zone, 1);
            tzset();
            shell(u"date +%z >offset"_s);
            const QByteArray offset = contents("offset").trimmed();
            EXPECT(QTest::qWaitFor([&] { return count(1), holds(offset + "\","); }));
        }
    }
};

struct Row
{
    const char* scenario; // and its parameter
    const char* keys;     // in addition to those that every row has
    const char* errors;   // regular expression for all of standard error
    int lossRecords = 0;  // -1: any number
    const char* log = "store/x.log";
};

#define LOG "log file '[^']*': "
#define GIVEN_UP LOG "(\\d+) records? (?:was|were) given up: [^\n]*\n"
#define WAITS LOG "cannot be written, records wait: [^\n]*\n"
#define WAITS_TWICE WAITS "(" WAITS ")?" // the second time when that lasts until ten seconds after the first
#define GROWS LOG "grows, since no new one can be begun: [^\n]*\n"
#define UNKNOWN "[^\n]* queueLimit = '1' is no setting[^\n]*\n"
#define LEGAL "[^\n]* legal is [^\n]*\n"

const Row rows[] = {
    {"failure 'mv store/x.log kept.log'", "", ""},
    {"failure 'cp store/x.log kept.log && : >store/x.log'", "rotation=4 K", ""},
    {"failure 'mv store moved | mkdir store'", "rotation=4 K", WAITS},
    {"failure 'chmod 555 store | chmod 755 store | grows'", "rotation=4 K", GROWS},
    {"failure 'chmod 000 store | chmod 755 store'", "rotation=4 K", GROWS},
    {"failure 'prlimit --pid $PPID --nofile=3: | prlimit --pid $PPID --nofile=256: | grows'",
     "rotation=4 K\nflush=true", GROWS},
    {"failure 'prlimit --pid $PPID --nofile=3: ; mv store/x.log kept.log | prlimit --pid $PPID --nofile=256:'", "",
     WAITS},
    {"failure 'prlimit --pid $PPID --fsize=2000: | prlimit --pid $PPID --fsize=unlimited:'", "rotation=4 K", WAITS},
    {"fullDisk 100", "rotation=200 K\nqueueSize=256 K", WAITS_TWICE GIVEN_UP, 1},
    {"fullDisk 5000", "rotation=200 K\nqueueSize=256 K\nflush=true", WAITS_TWICE GIVEN_UP, 1},
    {"fullDisk 110", "rotation=200 K\nqueueSize=256 K\nflush=true", WAITS_TWICE GIVEN_UP, 1},
    {"slow wait", "", ""},
    {"slow drop", "queueSize=1 M\nqueueOverflow=drop", "", -1},
    {"hangs forEver", "queueSize=64 K", GIVEN_UP GIVEN_UP},
    {"hangs forAWhile", "queueSize=64 K", "", 1},
    {"synchronizesBadly", "flush=true", WAITS},
    {"interrupted", "rotation=4 K\nflush=true", ""},
    {"pipe", "queueSize=256 K", "(?:" WAITS "){0,2}" GIVEN_UP, 0, "pipe"},
    {"device", "", WAITS GIVEN_UP, 0, "/dev/full"},
    {"device", "rotation=1 K", "", 0, "/dev/stdout"},
    {"queueKeys", "queueSize=64 K\nqueueOverflow=drop\nqueueLimit=1\n-flush=true", UNKNOWN LEGAL LEGAL LEGAL LEGAL, -1},
    {"zones", "", ""},
};

} // namespace

class tst_Faults : public QObject
{
    Q_OBJECT
    const TestPlace place;

    /// A scenario's command, for a shell. It leaves its exit code in the file "status".
    QString prepare(const QString& folder, const Row& row) const
    {
        QDir().mkpath(place.path(folder + u"/store"_s));
        place.write(folder + u"/orders"_s, {});
        place.write(
            folder + u"/Quadel_Log.ini"_s,
            QByteArray("[LoggerFileChannel]\nrotation=never\ncompress=false\npurgeAge=none\npurgeCount=1000\n") +
                row.keys + "\npath=" + row.log + '\n');
        const QString scenario = QString::fromLatin1(row.scenario);
        QString within;
        if (scenario.contains(u"Disk"_s))
            within = u"unshare -rm sh -c 'mount -t tmpfs -o size=3m none store && \"$@\"; status=$?; "
                     "rm -f store/filler; cp -r store saved; exit $status' sh"_s;
        else if (scenario.contains(u"chmod"_s) && geteuid() == 0)
            within = u"chown -R 65534:65534 . && setpriv --reuid=65534 --regid=65534 --clear-groups"_s;
        // By a shell, since QProcess cannot start anything under an emulator.
        return u"(cd '%1' && export BADSTORE_DIRECTORY=$PWD/store BADSTORE_ORDERS=$PWD/orders FAULTS_LOG=%2 "
               "QUADEL_CURRENT_LOG_LOCATION=$PWD/store QUADEL_CURRENT_CONFIG_LOCATION=$PWD; "
               "%3 timeout 90 $ZYR_TEST_EMULATOR '%4' %5 >output.log 2>error; echo $? >status; chmod 755 store) &\n"_s
                   .arg(place.path(folder), QString::fromLatin1(row.log), within,
                        QCoreApplication::applicationFilePath(), scenario);
    }

private Q_SLOTS:
    // In parallel: they mostly wait.
    void initTestCase()
    {
        QFile::setPermissions(place.path({}), QFile::permissions(place.path({})) | QFile::ExeOther);
        QString script;
        for (std::size_t i = 0; i < std::size(rows); ++i)
            script += prepare(QString::number(i), rows[i]);
        QCOMPARE(std::system(qPrintable(script + u"wait"_s)), 0);
    }

    void scenario_data()
    {
        QTest::addColumn<QString>("folder");
        for (std::size_t i = 0; i < std::size(rows); ++i)
            QTest::newRow(rows[i].scenario) << QString::number(i);
    }

    void scenario()
    {
        QFETCH(const QString, folder);
        const Row& row = rows[folder.toUInt()];
        const QString errors = QString::fromUtf8(place.read(folder + u"/error"_s));
        static const QRegularExpression refused(u"^(unshare|mount|setpriv): "_s);
        if (errors.contains(refused)) // by a container, or for lack of rights
            SKIP_BUT_IN_CI(qPrintable(errors));
        const QRegularExpression expected(u"^%1$"_s.arg(QString::fromLatin1(row.errors)));
        QVERIFY2(expected.match(errors).hasMatch(), qPrintable(errors));
        QCOMPARE(place.read(folder + u"/status"_s), "0\n");
        QVERIFY(!QFile::exists(place.path(folder + u"/output.log.0"_s)));

        int lossRecords = 0;
        int lost = 0;
        QList<int> found;
        static const QRegularExpression loss(u"^(\\d+) records? lost: "_s);
        QDirIterator files(place.path(folder), {u"*.log*"_s}, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString file = QDir(place.path({})).relativeFilePath(files.next());
            for (const QString& line : place.lines(file)) {
                const QJsonDocument record = QJsonDocument::fromJson(line.toUtf8());
                const QString text = record[u"msg"].toString();
                QVERIFY2(!text.isEmpty(), qPrintable(file + u": "_s + line));
                if (const auto match = loss.match(text); match.hasMatch()) {
                    QCOMPARE(record[u"level"].toString(), u"warn"_s);
                    lost += match.captured(1).toInt();
                    ++lossRecords;
                } else if (!text.startsWith(u"<SYS>"_s)) {
                    found.append(text.section(u' ', 0, 0).toInt());
                }
            }
            QVERIFY2(place.read(file).endsWith('\n') || place.read(file).isEmpty(), qPrintable(file));
        }
        int givenUp = 0;
        static const QRegularExpression reported(QStringLiteral(GIVEN_UP));
        for (auto match = reported.globalMatch(errors); match.hasNext();)
            givenUp += match.next().captured(1).toInt();

        qInfo() << "found" << found.size() << "reported as lost" << lost << "given up" << givenUp;
        std::sort(found.begin(), found.end());
        QVERIFY(std::adjacent_find(found.begin(), found.end()) == found.end());
        QCOMPARE(found.size() + lost + givenUp, place.read(folder + u"/logged"_s).toInt());
        if (row.lossRecords >= 0)
            QCOMPARE(lossRecords, row.lossRecords);
    }
};

int main(int argumentCount, char* words[])
{
    Scenarios scenarios;
    if (logFile && QMetaObject::invokeMethod(&scenarios, words[1], Q_ARG(QString, QString::fromUtf8(words[2])))) {
        std::ofstream("logged") << logged;
        return 0;
    }
    const QCoreApplication application(argumentCount, words);
    tst_Faults test;
    return QTest::qExec(&test, argumentCount, words);
}

#include "tst_faults.moc"
