// A store that fails, is slow or hangs: whatever is not in the log file is told as lost or given up, and the program
// goes on and ends. With the variable FAULTS_FACTOR set to 10, a million records go through a slow store.

#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <Poco/Channel.h>
#include <Poco/Logger.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryCounts = false;
#else
constexpr bool memoryCounts = true;
#endif

namespace {

bool right = true; // what only the scenario itself sees

std::ostream& report()
{
    static std::ofstream file("told");
    return file;
}

/// Says which expectation of a scenario was not met.
void expect(bool met, const char* what)
{
    right &= met;
    if (!met)
        report() << "not met: " << what << std::endl;
}

#define EXPECT(condition) expect(condition, #condition)

template <typename Value>
void tell(const char* name, Value value)
{
    report() << name << ' ' << value << std::endl;
}

/// How many milliseconds `action` takes.
qint64 timed(const std::function<void()>& action)
{
    QElapsedTimer time;
    time.start();
    action();
    return time.elapsed();
}

std::atomic<int> logged = 0;
QString padding;

/// Logs that many records, whose texts begin with their numbers. Returns the milliseconds of the longest call.
qint64 count(int records)
{
    qint64 longest = 0;
    for (int i = 0; i < records; ++i) {
        const QString text = QString::number(logged++) + u' ' + padding;
        longest = std::max(longest, timed([&] { Zyr::Logger::instance().out(Zyr::Info, text).endl(); }));
    }
    return longest;
}

void shell(const char* script)
{
    EXPECT(std::system(script) == 0);
}

const char* const logFile = std::getenv("FAULTS_LOG"); // where the scenario's log file is

bool holds(const QByteArray& text)
{
    QFile file(QFile::decodeName(logFile));
    return file.open(QIODevice::ReadOnly) && file.readAll().contains(text);
}

bool holdsAll()
{
    return QTest::qWaitFor([] { return holds("\"msg\":\"" + QByteArray::number(logged - 1) + ' '); }, 30'000);
}

qint64 status(const std::string& key)
{
    std::ifstream file("/proc/self/status");
    std::string word;
    while (word != key && file >> word)
        continue;
    qint64 value = 0;
    file >> value;
    return value;
}

void order(const char* what)
{
    QFile file(u"orders"_s);
    EXPECT(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(what) > 0);
}

void limit(decltype(RLIMIT_NOFILE) resource, rlim_t most)
{
    rlimit both = {};
    getrlimit(resource, &both);
    both.rlim_cur = std::min(most, both.rlim_max);
    EXPECT(setrlimit(resource, &both) == 0);
}

struct Trouble
{
    const char* name;
    std::function<void()> begin;
    std::function<void()> end;
    bool goesOn = false; // with the old file
};

/// What befalls store/x.log and its directory.
const Trouble troubles[] = {
    {"removed", [] { shell("ln store/x.log kept.log && rm store/x.log"); }, [] {}},
    {"renamed", [] { shell("mv store/x.log kept.log"); }, [] {}},
    {"truncated", [] { shell("cp store/x.log kept.log && : >store/x.log"); }, [] {}},
    {"directoryRemoved", [] { shell("mv store moved"); }, [] { shell("mkdir store"); }},
    {"directoryReplaced", [] { shell("mv store moved && touch store"); }, [] { shell("rm store && mkdir store"); }},
    {"directoryUnreadable", [] { shell("mv store/x.log kept.log && chmod 333 store"); }, [] {}},
    {"directoryReadOnly", [] { shell("chmod 555 store"); }, [] { shell("chmod 755 store"); }, true},
    {"noDescriptors", [] { limit(RLIMIT_NOFILE, 3); }, [] { limit(RLIMIT_NOFILE, 256); }, true},
    {"fileTooLarge", [] { limit(RLIMIT_FSIZE, 2'000); }, [] { limit(RLIMIT_FSIZE, RLIM_INFINITY); }},
};

/// One is run in a process of its own.
class Scenarios : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    // Records that go on into a file that is no longer there, or are lost for good; a signal.
    void trouble(const QString& name)
    {
        const auto found = std::find_if(std::begin(troubles), std::end(troubles), [&](const Trouble& trouble) {
            return name == QLatin1StringView(trouble.name);
        });
        padding = QString(100, u'x');
        count(100);
        EXPECT(holdsAll());
        found->begin();
        struct stat before = {};
        stat(logFile, &before);
        for (int i = 0; i < 150; ++i) {
            count(1);
            QThread::msleep(10);
        }
        struct stat after = {};
        if (found->goesOn)
            EXPECT(stat(logFile, &after) == 0 && after.st_size > before.st_size + 10'000 &&
                   after.st_ino == before.st_ino);
        found->end();
        const qint64 repaired = timed([] { EXPECT(QTest::qWaitFor([] { return count(1), holdsAll(); })); });
        tell("milliseconds until records arrive", repaired);
        if (found->goesOn)
            EXPECT(
                QTest::qWaitFor([&] { return count(1), stat(logFile, &after) == 0 && after.st_ino != before.st_ino; }));
    }

    // Half a record in the file; records lost that the file has room for, or that nobody tells of; archives touched.
    void fullDisk(const QString& size)
    {
        padding = QString(size.toInt(), u'x');
        const int third = 700'000 / int(padding.size() + 70);
        count(third);
        EXPECT(holdsAll());
        shell("cat /dev/zero >store/filler 2>/dev/null; true");
        tell("milliseconds of all calls", timed([&] { count(third); }));
        shell("rm store/filler");
        EXPECT(QTest::qWaitFor([] { return holds("lost: No space left on device"); }, 10'000));
        count(third);
    }

    // A queue that grows, a thread for each retry, callers that wait for each record, a process that never ends.
    void endsOnFullDisk(const QString&)
    {
        padding = QString(300, u'x');
        count(1000);
        EXPECT(holdsAll());
        shell("cat /dev/zero >store/filler 2>/dev/null; true");
        const qint64 threads = status("Threads:");
        const qint64 memory = status("VmRSS:");
        const qint64 all = timed([] { count(40'000); });
        tell("milliseconds of all calls", all);
        EXPECT(all < 20'000);
        tell("more KiB", status("VmRSS:") - memory);
        EXPECT(status("VmRSS:") - memory < (8 + 2) * 1024 || !memoryCounts);
        EXPECT(status("Threads:") == threads);
    }

    // Half a record at the end of the file, or records that are not counted, when the disk becomes full at the end.
    void fillsDisk(const QString&)
    {
        shell("head -c 2500000 /dev/zero >store/filler");
        padding = QString(100, u'x');
        order("write 100 0 0\n");
        count(10'000);
    }

    // Records that are lost, or memory that grows, although the store only needs time; callers that wait for nothing.
    void slow(const QString&)
    {
        static const int half = 50'000 * std::max(1, qEnvironmentVariableIntValue("FAULTS_FACTOR"));
        padding = QString(100, u'x');
        order("write 20 0 0\n");
        std::thread other([] { tell("milliseconds of the longest call", count(half)); });
        count(half);
        other.join();
        EXPECT(status("VmHWM:") < 40'000 || !memoryCounts);
        tell("KiB at most", status("VmHWM:"));
    }

    // A caller of anything that waits for the store, or one that waits for each record again; an end that never comes.
    void hangs(const QString&)
    {
        Zyr::Logger& logger = Zyr::Logger::instance();
        auto valve = std::make_unique<Zyr::ClassLogger>(u"Valve"_s);
        count(10);
        EXPECT(holdsAll());
        order("write -1 0 0\n");
        for (int i = 0; i < 10; ++i)
            valve->cLogInfo(QString::number(logged++) + u' ').endl();
        const qint64 all = timed([] { count(5'000); });
        tell("milliseconds of all calls", all);
        EXPECT(all < 20'000);
        QSettings settings(u"Quadel_Log.ini"_s, QSettings::IniFormat);
        const qint64 location = timed([&] {
            logger.setLogFileProperty(u"flush"_s, u"true"_s);
            logger.setLogFilePath(u"store/y.log"_s);
            logger.createLoggerBySettings(settings);
            logger.getLogFilePath();
        });
        tell("milliseconds of a new location and a load", location);
        EXPECT(location < 1'000);
        tell("milliseconds of a class logger's end", timed([&] { valve.reset(); }));
        tell("milliseconds of a flush at the end", timed([&] { logger.flushFinal(); }));
        ++logged; // its own record
    }

    // A write given up that is made after all, or a record that is.
    void hangsForAWhile(const QString&)
    {
        count(10);
        EXPECT(holdsAll());
        order("write -1 0 0\n");
        std::thread repair([] { QThread::sleep(5), order("write 0 0 0\n"); });
        tell("milliseconds of all calls", timed([] { count(5'000); }));
        repair.join();
        EXPECT(QTest::qWaitFor([] { return holds("lost: "); }));
        count(10);
    }

    // A record that is written again although it is in the file, or taken for written.
    void synchronizesBadly(const QString&)
    {
        count(10);
        EXPECT(holdsAll());
        order("fdatasync 0 5 3\n");
        count(1'000);
    }

    // SIGPIPE; half a record for the next reader; a loss that nobody is told of.
    void pipe(const QString&)
    {
        shell("mkfifo pipe");
        QFile copy(u"copy.log"_s);
        EXPECT(copy.open(QIODevice::WriteOnly));
        for (int reader = 0; reader < 3; ++reader) {
            const int end = ::open("pipe", O_RDONLY | O_NONBLOCK);
            count(100);
            const QByteArray last = "\"msg\":\"" + QByteArray::number(logged - 1) + ' ';
            QByteArray all;
            EXPECT(QTest::qWaitFor([&] {
                char bytes[65536];
                const ssize_t size = ::read(end, bytes, sizeof bytes);
                all.append(bytes, std::max<ssize_t>(size, 0));
                return all.contains(last) && all.endsWith('\n');
            }));
            copy.write(all);
            ::close(end);
            count(100);
            QThread::msleep(50);
        }
    }

    // A pipe that is full for a moment taken for a store that fails: records lost, or a rest after each piece of them.
    void slowReader(const QString&)
    {
        shell("mkfifo pipe && (cat pipe >copy.log) &");
        EXPECT(QTest::qWaitFor([] { return QFile::exists(u"pipe"_s); }));
        const int end = ::open("pipe", O_WRONLY); // returns when there is a reader
        count(1);
        ::close(end);
        padding = QString(400, u'x');
        tell("milliseconds of all calls", timed([] { count(20'000); }));
    }

    // A reader that finds the end of the pipe while the logger tries whether there is one.
    void lateReader(const QString&)
    {
        shell("mkfifo store/pipe");
        EXPECT(std::freopen("said", "w", stdout));
        Zyr::Logger::instance();
        order("open 300 0 0\n"); // time enough for the reader to find the end
        shell("(cat store/pipe >copy.log) &");
        EXPECT(QTest::qWaitFor([] { return Poco::Logger::has("MainLogger"); }, 20'000));
        count(100);
    }

    // A worker thread that sleeps through the end of its logger.
    void ends(const QString&)
    {
        padding = QString(100'000, u'x');
        for (int i = 0; i < 100; ++i) {
            count(1);
            Poco::Logger::get("MainLogger").getChannel()->close();
        }
    }

    // A worker thread, and its lock on the file, that are left when the store comes back after they were given up.
    void comesBack(const QString&)
    {
        count(1);
        const qint64 threads = status("Threads:");
        {
            Zyr::ClassLogger valve(u"Valve"_s);
            valve.cLogInfo(QString::number(logged++) + u' ').endl();
            EXPECT(QTest::qWaitFor([] { return QFileInfo(u"store/_Valve.log"_s).size() > 0; }));
            order("write -1 0 0\n");
            valve.cLogInfo(u"<SYS> given up"_s).endl();
            ++logged;
        }
        order("write 0 0 0\n");
        EXPECT(QTest::qWaitFor([&] { return status("Threads:") == threads; }));
    }

    // A device that is locked, rotated or written at the wrong place, or whose failure is taken for something else.
    void device(const QString& name)
    {
        count(100);
        if (name == u"null"_s)
            logged = 0; // that can be found
    }

    // A bad key that keeps the chain from being built, or puts something else in the place of what was in force.
    void queueKeys(const QString&)
    {
        QSettings settings(u"other.ini"_s, QSettings::IniFormat);
        const auto load = [&](const QString& size, const QString& overflow) {
            settings.setValue(u"LoggerFileChannel/queueSize"_s, size);
            settings.setValue(u"LoggerFileChannel/queueOverflow"_s, overflow);
            settings.setValue(u"LoggerFileChannel/path"_s, QFile::decodeName(logFile));
            Zyr::Logger::instance().createLoggerBySettings(settings);
        };
        load(u"64 K"_s, u"drop"_s);
        load(u"32 K"_s, u"maybe"_s);
        load(u"8 G"_s, u"maybe"_s);
        count(1);
        EXPECT(holdsAll());
        order("write 300 0 0\n");
        count(5'000);
        EXPECT(QTest::qWaitFor([] { return holds("lost: the queue is full"); }));
    }
};

struct Row
{
    const char* scenario; // and its parameter
    const char* keys;     // beside those that every row has
    const char* errors;   // an expression that matches all of standard error
    int lossRecords = 0;  // -1: any number
    const char* log = "store/x.log";
};

#define LOG "log file '[^']*': "
#define GIVEN_UP LOG "(\\d+) records? (?:was|were) given up: [^\n]*\n"
#define WAITS LOG "cannot be written, records wait: [^\n]*\n"
#define GROWS LOG "grows, since no new one can be begun: [^\n]*\n"
#define LEGAL "[^\n]* legal is [^\n]*\n"

const Row rows[] = {
    {"trouble removed", "rotation=4 K", ""},
    {"trouble renamed", "", ""},
    {"trouble truncated", "rotation=4 K", ""},
    {"trouble directoryRemoved", "rotation=4 K", WAITS},
    {"trouble directoryReplaced", "rotation=4 K", WAITS},
    {"trouble directoryReadOnly", "rotation=4 K", GROWS},
    {"trouble directoryUnreadable", "rotation=4 K\nflush=true", GROWS},
    {"trouble noDescriptors", "rotation=4 K\nflush=true", GROWS},
    {"trouble fileTooLarge", "rotation=4 K", WAITS},
    {"fullDisk 100", "rotation=200 K\nqueueSize=256 K", WAITS, 1},
    {"fullDisk 5000", "rotation=200 K\nqueueSize=256 K\nflush=true", WAITS, 1},
    {"fullDisk 110", "rotation=200 K\nqueueSize=256 K\nflush=true", WAITS, 1},
    {"fullDisk 5100", "rotation=200 K\nqueueSize=256 K", WAITS, 1},
    {"fillsDisk -", "", WAITS GIVEN_UP},
    {"endsOnFullDisk -", "", WAITS GIVEN_UP},
    {"slow wait", "", ""},
    {"slow drop", "queueSize=1 M\nqueueOverflow=drop", "", -1},
    {"hangs -", "queueSize=64 K", GIVEN_UP GIVEN_UP},
    {"hangsForAWhile -", "queueSize=64 K", "", 1},
    {"synchronizesBadly -", "flush=true", WAITS},
    {"pipe -", "", WAITS GIVEN_UP, 0, "pipe"},
    {"slowReader -", "queueSize=256 K", "(?:" WAITS ")?", 0, "pipe"},
    {"lateReader -", "", "[^\n]* Cannot open file: [^\n]*\n", 0, "store/pipe"},
    {"ends -", "", ""},
    {"comesBack -", "", LOG "1 record was given up: [^\n]*\n"},
    {"device full", "", WAITS GIVEN_UP, 0, "/dev/full"},
    {"device null", "", "", 0, "/dev/null"},
    {"device stdout", "rotation=1 K", "", 0, "/dev/stdout"},
    {"queueKeys -", "", LEGAL LEGAL LEGAL LEGAL, -1},
};

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT
    const TestPlace place;

    static QString nameOf(const Row& row) { return QString::fromLatin1(row.scenario).replace(u' ', u'_'); }

    /// A scenario's command, for a shell. It leaves its exit code in the file "status".
    QString prepare(const Row& row) const
    {
        const QString name = nameOf(row);
        QDir().mkpath(place.path(name + u"/store"_s));
        place.write(name + u"/orders"_s, {});
        place.write(
            name + u"/Quadel_Log.ini"_s,
            QByteArray("[LoggerFileChannel]\nrotation=never\ncompress=false\npurgeAge=none\npurgeCount=1000\n") +
                row.keys + "\npath=" + row.log + '\n');
        QString within;
        if (name.contains(u"Disk"_s))
            within = u"unshare -rm sh -c 'mount -t tmpfs -o size=3m none store && "
                     "echo \"{\\\"msg\\\":\\\"old\\\"}\" >store/x.log.0 && \"$@\"; status=$?; "
                     "rm -f store/filler; cp -r store saved; exit $status' sh"_s;
        else if (name.contains(u"directory"_s) && geteuid() == 0)
            within = u"chown -R 65534:65534 . && setpriv --reuid=65534 --regid=65534 --clear-groups"_s;
        // By a shell, since QProcess cannot start anything under an emulator.
        return u"(cd '%1' && export BADSTORE_DIRECTORY=$PWD/store BADSTORE_ORDERS=$PWD/orders FAULTS_LOG=%2 "
               "QUADEL_CURRENT_LOG_LOCATION=$PWD/store QUADEL_CURRENT_CONFIG_LOCATION=$PWD; "
               "%3 timeout 90 $ZYR_TEST_EMULATOR '%4' %5 >output.log 2>error; echo $? >status; chmod 755 store) &\n"_s
                   .arg(place.path(name), QString::fromLatin1(row.log), within, QCoreApplication::applicationFilePath(),
                        QString::fromLatin1(row.scenario));
    }

private Q_SLOTS:
    // All at a time, since they wait most of it.
    void initTestCase()
    {
        QFile::setPermissions(place.path({}), QFile::permissions(place.path({})) | QFile::ExeOther);
        QString script;
        for (const Row& row : rows)
            script += prepare(row);
        QCOMPARE(std::system(qPrintable(script + u"wait"_s)), 0);
    }

    void scenario_data()
    {
        QTest::addColumn<const Row*>("row");
        for (const Row& row : rows)
            QTest::newRow(row.scenario) << &row;
    }

    void scenario()
    {
        QFETCH(const Row* const, row);
        const QString name = nameOf(*row);
        const QByteArray told = place.read(name + u"/told"_s);
        const QByteArray errors = place.read(name + u"/error"_s);
        if (errors.contains("unshare: ") || errors.contains("setpriv: "))
            QSKIP(errors.constData());
        const auto changed = [&](const char* file) {
            return QFileInfo(place.path(name + QLatin1StringView(file))).lastModified();
        };
        qInfo().noquote() << told << errors << "milliseconds of the end"
                          << changed("/told").msecsTo(changed("/status"));
        QCOMPARE(place.read(name + u"/status"_s), "0\n");
        QVERIFY(!QFile::exists(place.path(name + u"/output.log.0"_s)));

        int lossRecords = 0;
        int lost = 0;
        int old = 0;
        QList<int> found;
        static const QRegularExpression loss(u"^(\\d+) records? lost: "_s);
        QDirIterator files(place.path(name), {u"*.log*"_s}, QDir::Files, QDirIterator::Subdirectories);
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
                } else if (text == u"old"_s) {
                    ++old;
                } else if (!text.startsWith(u"<SYS>"_s)) {
                    found.append(text.section(u' ', 0, 0).toInt());
                }
            }
            QVERIFY2(place.read(file).endsWith('\n') || place.read(file).isEmpty(), qPrintable(file));
        }
        QCOMPARE(old, name.contains(u"Disk"_s) ? 1 : 0);

        const QRegularExpression expected(u"^%1$"_s.arg(QString::fromLatin1(row->errors)));
        QVERIFY2(expected.match(QString::fromUtf8(errors)).hasMatch(), errors.constData());
        int givenUp = 0;
        static const QRegularExpression reported(QStringLiteral(GIVEN_UP));
        for (auto match = reported.globalMatch(QString::fromUtf8(errors)); match.hasNext();)
            givenUp += match.next().captured(1).toInt();

        qInfo() << "found" << found.size() << "told as lost" << lost << "given up" << givenUp;
        std::sort(found.begin(), found.end());
        QVERIFY(std::adjacent_find(found.begin(), found.end()) == found.end());
        QCOMPARE("logged " + QByteArray::number(found.size() + lost + givenUp),
                 told.mid(told.lastIndexOf("logged ")).trimmed());
        if (row->lossRecords >= 0)
            QCOMPARE(lossRecords, row->lossRecords);
    }
};

int main(int argumentCount, char* words[])
{
    Scenarios scenarios;
    if (logFile && QMetaObject::invokeMethod(&scenarios, words[1], Q_ARG(QString, QString::fromUtf8(words[2])))) {
        tell("logged", logged.load());
        return right ? 0 : 1;
    }
    const QCoreApplication application(argumentCount, words);
    TestFaults test;
    return QTest::qExec(&test, argumentCount, words);
}

#include "tst_faults.moc"
