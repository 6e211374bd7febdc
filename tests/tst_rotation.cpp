// That no record is lost, doubled or torn: under rotation, kills, several writers and reloads.
//
// tests/rotation.sh runs it with the numbers of a long life.

#include "TestPlace.h"

#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <atomic>
#include <csignal>
#include <fstream>
#include <map>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

const bool full = qEnvironmentVariableIsSet("ZYR_ROTATION_FULL");

/// For a process of its own: the scenario, the writer's name, how many records each thread writes, of which length.
QStringList words;

void say(const QString& text)
{
    Zyr::Logger::instance().out(Zyr::Info, text).endl();
}

/// The text of a record: who wrote it, its number, and a filling that ends in a mark.
QByteArray recordText(const QByteArray& writer, int number, int length)
{
    return (writer + ' ' + QByteArray::number(number) + ' ').leftJustified(length - 1, 'x') + '|';
}

void count(char thread, int from, int to)
{
    const QByteArray writer = words[2].toLatin1() + thread;
    const int length = words[4].toInt();
    for (int i = from; i < to; ++i)
        say(QString::fromLatin1(recordText(writer, i, length)));
}

void countOnTwoThreads(int from, int to)
{
    std::thread other(count, 'b', from, to);
    count('a', from, to);
    other.join();
}

void touch(const char* file)
{
    std::ofstream stream(file);
}

void waitFor(const char* file)
{
    while (!QFile::exists(QLatin1StringView(file)))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// How often the worker thread has gone to sleep so far; -1 when there is none.
long sleeps()
{
    for (const QString& task : QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(u"/proc/self/task/%1/status"_s.arg(task));
        const QByteArray text = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
        const QByteArray key = "\nvoluntary_ctxt_switches:\t";
        if (text.startsWith("Name:\tLogWriter\n"))
            return text.mid(text.indexOf(key) + key.size()).split('\n').first().toLong();
    }
    return -1;
}

/// One is run in a process of its own.
class Scenarios : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    void writes() { countOnTwoThreads(0, words[3].toInt()); }

    void writesFirst()
    {
        countOnTwoThreads(0, 1);
        touch("first");
        waitFor("second");
        countOnTwoThreads(1, words[3].toInt());
        if (words.value(5) == "killed"_L1)
            std::raise(SIGKILL);
    }

    void writesSecond()
    {
        waitFor("first");
        countOnTwoThreads(0, 1);
        touch("second");
        const int records = words[3].toInt();
        countOnTwoThreads(1, records / 3);
        for (int i = 0; !QFile::exists(u"gone"_s); ++i) { // so that it does not have to open the file that is left
            count('c', i, i + 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        countOnTwoThreads(records / 3, records);
    }

    void isKilled()
    {
        countOnTwoThreads(0, 1);
        std::thread([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(words[5].toInt()));
            std::raise(SIGKILL);
        }).detach();
        countOnTwoThreads(1, INT_MAX);
    }

    void isIdle()
    {
        using namespace std::chrono_literals;
        count('a', 0, 5);
        std::this_thread::sleep_for(full ? 2s : 500ms);
        const long before = sleeps();
        std::this_thread::sleep_for(full ? 3s : 1s);
        std::ofstream("awake") << (before < 0 ? before : sleeps() - before);
        std::raise(SIGKILL);
    }

    void reloads()
    {
        std::atomic<bool> enough = false;
        const auto log = [&](char thread) {
            int i = 0;
            for (; !enough; ++i) {
                count(thread, i, i + 1);
                std::this_thread::sleep_for(std::chrono::microseconds(20));
            }
            std::ofstream(std::string("counted.") + thread) << "1" << thread << ":0-" << i - 1;
        };
        std::thread first(log, 'a'), second(log, 'b');
        const int loads = words[3].toInt();
        const int loadsPerMove = words[5].toInt();
        QSettings settings(u"Quadel_Log.ini"_s, QSettings::IniFormat);
        for (int i = 1; i <= loads; ++i) {
            Zyr::Logger::instance().createLoggerBySettings(settings);
            if (i % loadsPerMove != 0)
                continue;
            const QString path = u"log/moved.%1"_s.arg(i / loadsPerMove);
            Zyr::Logger::instance().setLogFilePath(path);
            while (QFileInfo(path).size() == 0)
                std::this_thread::yield();
        }
        enough = true;
        first.join();
        second.join();
    }

    // Between the lines of the last one the queue, of 64 K, is full.
    void writesLargeRecords()
    {
        for (int i = 0; i < words[3].toInt(); ++i) {
            say(u"%1\n."_s.arg(i));
            say(QString(100'000, u'y'));
            say(QString(300'000, u'z'));
        }
    }

    void opensAgain()
    {
        Zyr::Logger& logger = Zyr::Logger::instance();
        for (int step = 0; step < 5; ++step) {
            count('a', step, step + 1);
            QFile file(logger.getLogFilePath());
            while (!file.open(QIODevice::ReadOnly) || !file.readAll().contains("{1a " + QByteArray::number(step)))
                file.close();
            if (step < 2)
                logger.flushFinal();
            else if (step == 2)
                logger.setLogFilePath(logger.getLogFilePath());
            else if (QSettings settings(u"Quadel_Log.ini"_s, QSettings::IniFormat); step == 3)
                logger.createLoggerBySettings(settings);
        }
    }
};

/// Runs a shell's script in `place` with log files in its directory "log"; `run` there starts a scenario.
void shell(const TestPlace& place, const QString& script)
{
    const QString prelude = u"cd '%1'; export QUADEL_CURRENT_LOG_LOCATION=$PWD/log; mkdir -p log; "
                            "run() { timeout %3 $ZYR_TEST_EMULATOR '%2' \"$@\" 2>>error; }; exec 2>>shell;\n"_s;
    std::system(qPrintable(prelude.arg(place.path({}), QCoreApplication::applicationFilePath()).arg(full ? 1000 : 60) +
                           script));
}

/// What there is of the records of all writers, in the archives and the log from the oldest one on.
struct Found
{
    std::map<QByteArray, std::vector<int>> numbers; ///< of each writer
    QByteArrayList cutLines;                        ///< which are no records
    QStringList faults;
    QStringList names; ///< of all files

    /// Like "1a:0-499 1b:0-499": all numbers, sorted.
    QByteArray sequences() const
    {
        QByteArray result;
        for (auto [writer, all] : numbers) {
            std::sort(all.begin(), all.end());
            result += (result.isEmpty() ? "" : " ") + writer + ':';
            for (std::size_t i = 0, begin = 0; i < all.size(); ++i) {
                if (i + 1 < all.size() && all[i + 1] == all[i] + 1)
                    continue;
                result += (begin > 0 ? "," : "") + QByteArray::number(all[begin]) + '-' + QByteArray::number(all[i]);
                begin = i + 1;
            }
        }
        return result;
    }
};

/// The names, when they are not those of the log and of archives of one kind without a gap between their numbers.
QStringList oddNames(QStringList names, bool timestamped)
{
    const QRegularExpression odd(timestamped ? u"^(?!Quadel\\.log(\\.\\d{17}(\\.gz)?)?$)"_s
                                             : u"^(?!Quadel\\.log(\\.\\d{1,9}(\\.gz)?)?$)"_s);
    for (qsizetype i = 0; !timestamped && i + 1 < names.size(); ++i) {
        const QString name = u"Quadel.log.%1"_s.arg(i);
        if (names.contains(name) == names.contains(name + u".gz"_s))
            return names;
    }
    return names.filter(odd);
}

Found find(const TestPlace& place, bool timestamped, int length)
{
    shell(place, u"cd log; for f in *.gz; do [ ! -e $f ] || gzip -t $f || touch ../damaged; done; "
                 "{ gzip -dcf $(ls -v%1 Quadel.log.[0-9]*) moved.*; cat Quadel.log; } >../all"_s.arg(
                     timestamped ? u""_s : u"r"_s));
    Found found;
    std::ifstream lines(QFile::encodeName(place.path(u"all"_s)).toStdString());
    for (std::string line; std::getline(lines, line);) {
        const QByteArray bytes = QByteArray::fromStdString(line);
        const QByteArrayList parts = bytes.left(bytes.lastIndexOf(' ')).mid(1).split(' ');
        const int number = parts.size() == 2 ? parts[1].toInt() : -1;
        if (number >= 0 && bytes == '{' + recordText(parts[0], number, length) + '}')
            found.numbers[parts[0]].push_back(number);
        else
            found.cutLines += bytes;
    }
    for (const auto& [writer, numbers] : found.numbers) {
        if (!std::is_sorted(numbers.begin(), numbers.end()))
            found.faults += u"disordered"_s;
    }
    const auto all = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
    found.names = QDir(place.path(u"log"_s)).entryList(all, QDir::Name);
    found.faults += oddNames(found.names.filter(QRegularExpression(u"^(?!moved)"_s)), timestamped);
    if (QFile::exists(place.path(u"damaged"_s)))
        found.faults += u"damaged"_s;
    return found;
}

QByteArray settings(const QByteArray& keys)
{
    return settingsFile({}, "pattern={%t}\ncompress=true\npurgeAge=none\npurgeCount=1000000\n" + keys);
}

QByteArray sequences(const QByteArray& writer, int records)
{
    const QByteArray numbers = ":0-" + QByteArray::number(records - 1);
    return writer + 'a' + numbers + ' ' + writer + 'b' + numbers;
}

} // namespace

class TestRotation : public QObject
{
    Q_OBJECT

    const int records = full ? 1'000'000 : 60'000; // of all writers together, of 200 bytes

    static void archiveKinds()
    {
        QTest::addColumn<bool>("timestamped");
        QTest::addColumn<QByteArray>("keys");
        QTest::newRow("number") << false << QByteArray("archive=number\n");
        QTest::newRow("timestamp") << true << QByteArray("archive=timestamp\n");
    }

private Q_SLOTS:
    // A record that is lost or doubled where the file changes; archives that overtake each other; an archive or a
    // temporary file that is forgotten; a hole in the numbers.
    void rotates_data() { archiveKinds(); }
    void rotates()
    {
        QFETCH(const bool, timestamped);
        QFETCH(const QByteArray, keys);
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settings("rotation=1 M\n" + keys));
        shell(place, u"run writes 1 %1 197"_s.arg(records / 2));
        const Found found = find(place, timestamped, 197);
        QCOMPARE(found.sequences(), sequences("1", records / 2));
        QCOMPARE(found.cutLines, QByteArrayList());
        QCOMPARE(found.faults.join(u' '), QString());
        QVERIFY(found.names.size() > records / 5300);
        QCOMPARE(place.read(u"error"_s), QByteArray());
    }

    // Other archives kept than the newest ones, or not that many.
    void keepsTheNewest_data() { archiveKinds(); }
    void keepsTheNewest()
    {
        QFETCH(const bool, timestamped);
        QFETCH(const QByteArray, keys);
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settings("rotation=200 K\npurgeCount=10\n" + keys));
        shell(place, u"run writes 1 %1 197"_s.arg(records / 2));
        const Found found = find(place, timestamped, 197);
        QCOMPARE(found.names.size(), 11);
        QCOMPARE((found.faults + place.lines(u"error"_s)).join(u'\n'), QString());
        QCOMPARE(found.cutLines, QByteArrayList());
        for (const auto& [writer, numbers] : found.numbers) {
            QCOMPARE(numbers.back(), records / 2 - 1);
            QCOMPARE(numbers.back() - numbers.front() + 1, int(numbers.size()));
        }
    }

    // A line that is written to an archive while that is compressed, or between the halves of another one; a file that
    // grows for ever when the process that rotated it is gone; a report for each rotation.
    void twoProcesses_data()
    {
        QTest::addColumn<bool>("timestamped");
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<QString>("end");
        QTest::addColumn<int>("length");
        for (const bool stamps : {false, true}) {
            const QByteArray keys = stamps ? "rotation=300 K\narchive=timestamp" : "rotation=300 K";
            if (full || stamps)
                QTest::addRow("the first ends, %d", stamps) << stamps << keys << u""_s << 197;
            if (full || !stamps)
                QTest::addRow("the first is killed, %d", stamps) << stamps << keys << u"killed"_s << 197;
        }
        QTest::newRow("long records") << false << QByteArray("rotation=20 M") << u""_s << 300'000;
    }
    void twoProcesses()
    {
        QFETCH(const bool, timestamped);
        QFETCH(const QByteArray, keys);
        QFETCH(const QString, end);
        QFETCH(const int, length);
        const int unit = length > 1000 ? records / 1000 : records / 8;
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settings(keys));
        shell(place, u"{ run writesFirst 1 %1 %3 %4; touch gone; } & run writesSecond 2 %2 %3; wait"_s.arg(unit)
                         .arg(3 * unit)
                         .arg(length)
                         .arg(end));
        Found found = find(place, timestamped, length);
        QByteArrayList uncounted = {"2c"};
        QByteArray ofFirst = sequences("1", unit) + ' ';
        if (!end.isEmpty()) { // what was still queued is gone, and one line may be cut off
            QVERIFY(found.cutLines.size() <= 1);
            found.cutLines.clear();
            ofFirst.clear();
            uncounted << "1a"
                      << "1b";
        }
        for (const QByteArray& writer : uncounted) {
            const std::vector<int> numbers = found.numbers[writer];
            QVERIFY(!numbers.empty() && numbers.back() + 1 == int(numbers.size()));
            found.numbers.erase(writer);
        }
        QCOMPARE(found.sequences(), ofFirst + sequences("2", 3 * unit));
        QCOMPARE(found.cutLines.size(), 0);
        QCOMPARE(found.faults.join(u' '), QString());
        QVERIFY(length > 1000 || QFileInfo(place.path(u"log/Quadel.log"_s)).size() < 600'000);
        QCOMPARE(place.lines(u"error"_s).filter(u"log file"_s).size(), 1); // the shell tells that one was killed
    }

    // A log that is left under its hidden name, an archive that is overwritten because its numbers have a hole, a
    // gzipped file that is not whole, a cut off line that the next one continues, files of steps that were not ended.
    void survivesKills_data() { archiveKinds(); }
    void survivesKills()
    {
        QFETCH(const bool, timestamped);
        QFETCH(const QByteArray, keys);
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settings("rotation=100 K\n" + keys));
        const int kills = full ? 10 : 2;
        QByteArrayList whole;
        for (int kill = 10; kill < 10 + kills; ++kill) {
            shell(place, u"run isKilled k%1 0 197 %2"_s.arg(kill).arg(QRandomGenerator::global()->bounded(20, 300)));
            shell(place, u"run writes r%1 50 197"_s.arg(kill));
            whole += sequences("r" + QByteArray::number(kill), 50);
            QCOMPARE(find(place, timestamped, 197).faults, QStringList());
        }
        Found found = find(place, timestamped, 197);
        QVERIFY2(found.cutLines.size() <= kills, found.cutLines.join('\n').constData());
        for (auto writer = found.numbers.begin(); writer != found.numbers.end();) {
            QVERIFY2(writer->second.back() + 1 == int(writer->second.size()), writer->first.constData());
            writer = writer->first.startsWith('k') ? found.numbers.erase(writer) : std::next(writer);
        }
        QCOMPARE(found.sequences(), whole.join(' '));
    }

    // Records that wait for more of them, a worker thread that wakes up although nothing is to be done.
    void isIdle_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::newRow("never") << QByteArray("rotation=never\nflush=false");
        QTest::newRow("interval") << QByteArray("rotation=1 seconds\nflush=true");
    }
    void isIdle()
    {
        QFETCH(const QByteArray, keys);
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settings(keys));
        shell(place, u"run isIdle 1 0 197"_s);
        QCOMPARE(find(place, false, 197).sequences(), QByteArray("1a:0-4"));
        QCOMPARE(place.read(u"awake"_s), QByteArray("0"));
    }

    // A line that is lost, doubled or goes to an archive when files are opened and rotated at the same time.
    void reloads()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settings("rotation=20 K"));
        shell(place, u"run reloads 1 %1 197 %2"_s.arg(full ? 15'000 : 500).arg(full ? 75 : 25));
        Found found = find(place, false, 197);
        QCOMPARE(found.sequences(), place.read(u"counted.a"_s) + ' ' + place.read(u"counted.b"_s));
        QCOMPARE(found.cutLines, QByteArrayList());
        found.faults.removeAll(u"disordered"_s); // over several files
        QCOMPARE((found.faults + place.lines(u"error"_s)).join(u'\n'), QString());
        QCOMPARE(found.names.filter(QRegularExpression(u"^moved\\.\\d+$"_s)).size(), full ? 200 : 20);
    }

    // A record that is torn where the queue or a write is full, one that is longer than the queue and waits for ever.
    void keepsLargeRecords()
    {
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile({}, "pattern=%t\nqueueSize=64 K\n"));
        const int rounds = full ? 1000 : 50;
        shell(place, u"run writesLargeRecords 1 %1 0"_s.arg(rounds));
        QByteArray expected;
        for (int i = 0; i < rounds; ++i)
            expected +=
                QByteArray::number(i) + " .\n" + QByteArray(100'000, 'y') + '\n' + QByteArray(300'000, 'z') + '\n';
        QVERIFY(place.read(u"log/Quadel.log"_s) == expected);
    }

    void files_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<QString>("script");
        QTest::addColumn<QByteArray>("files"); // and how their lines begin
        const auto row = [](const char* name, const char* keys, const char* script, const char* files) {
            QTest::newRow(name) << QByteArray(keys) << QString::fromLatin1(script) << QByteArray(files);
        };
        // Archives kept by the times of files, which a wrong clock gave them; a name or a directory that is like that
        // of an archive and goes, or stops purging.
        row("wrong times", "rotateOnOpen=true\npurgeCount=3",
            "for i in 0 1 2 3; do echo $i >log/Quadel.log.$i; done; mkdir log/Quadel.log.old; touch "
            "log/Quadel.log.conf;"
            "touch -d 2099-01-01 log/Quadel.log.3; touch -d 1980-01-01 log/Quadel.log.0; echo L >log/Quadel.log; run "
            "writes 1 1 "
            "197",
            "Quadel.log:{1 Quadel.log.conf: Quadel.log.old: Quadel.log.0:L Quadel.log.1:0 Quadel.log.2:1");
        // The log that a killed process was just moving away, left under its hidden name; what it was just compressing.
        row("left-overs", "", "for i in next gz-part; do echo $i >log/.Quadel.log.$i; done; run writes 1 1 197",
            "Quadel.log:{1 Quadel.log.0:ne");
        // A new archive that is taken for the oldest one.
        row("stamps ahead", "rotateOnOpen=true\npurgeCount=2\narchive=timestamp",
            "for i in 2098 1999 2099; do echo $i >log/Quadel.log.${i}1231235959999; done; echo L >log/Quadel.log;"
            "run writes 1 1 197",
            "Quadel.log:{1 Quadel.log.20991231235959999:20 Quadel.log.21000101000000000:L");
        // A rotation whenever a record opens the file again; none at a load or a call that sets the path.
        row("opened again", "rotateOnOpen=true", "run opensAgain 1 0 197",
            "Quadel.log:{1 Quadel.log.0:{1 Quadel.log.1:{1,{<");
        // An interval that begins anew at each start of the program, or that is kept as a line of the log.
        row("interval", "rotation=3 seconds",
            "for i in 1 2 3; do run writes $i 1 197; [ $i != 2 ] || sleep 3; done; rm log/.Quadel.log.since",
            "Quadel.log:{3 Quadel.log.0:{1,{2");
        // A time of day that was missed while the program did not run.
        row("time of day", "rotation=12:00", "echo L >log/Quadel.log; touch -d '2 days ago' log/*; run writes 1 1 197",
            "Quadel.log:{1 Quadel.log.0:L");
    }
    void files()
    {
        QFETCH(const QByteArray, keys);
        QFETCH(const QString, script);
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settings("rotation=never\ncompress=false\n" + keys));
        shell(place, u"( %1 )\nfor f in $(ls -vA log); do echo $f:$(cut -c1-2 log/$f | sort -u | paste -sd,); done | "
                     "paste -sd' ' >files"_s.arg(script));
        QTEST(place.read(u"files"_s).trimmed(), "files");
    }
};

int main(int count, char* arguments[])
{
    for (int i = 0; i < count; ++i)
        words += QString::fromLocal8Bit(arguments[i]);
    if (Scenarios scenarios; count > 4 && QMetaObject::invokeMethod(&scenarios, arguments[1]))
        return 0;
    const QCoreApplication application(count, arguments);
    TestRotation test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_rotation.moc"
