// No record is lost, doubled or torn by rotation, kills, several writers and reloads.
//
// tests/rotation.sh runs it with the numbers of a long life.

#include "TestPlace.h"

#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <csignal>
#include <fstream>
#include <map>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

const bool full = qEnvironmentVariableIsSet("ZYR_ROTATION_FULL");

/// For a process of its own: the scenario, the writer's name, how many records each thread writes, of which length.
QStringList words;

/// The text of a record: who wrote it, its number, a filling and its length.
QByteArray recordText(const QByteArray& writer, int number, qsizetype length)
{
    const QByteArray end = QByteArray::number(length);
    return (writer + ' ' + QByteArray::number(number) + ' ').leftJustified(length - end.size(), 'x') + end;
}

void count(char thread, int from, int to)
{
    const QByteArray writer = words[2].toLatin1() + thread;
    const int length = words.value(4, u"197"_s).toInt();
    for (int i = from; i < to; ++i)
        Zyr::Logger::instance().out(Zyr::Info, QString::fromLatin1(recordText(writer, i, length))).endl();
}

void countOnTwoThreads(int from, int to)
{
    std::thread other(count, 'b', from, to);
    count('a', from, to);
    other.join();
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
        std::ofstream("first");
        waitFor("second");
        countOnTwoThreads(1, words[3].toInt());
        if (words.last() == "killed"_L1)
            std::raise(SIGKILL);
    }

    void writesSecond()
    {
        waitFor("first");
        countOnTwoThreads(0, 1);
        std::ofstream("second");
        countOnTwoThreads(1, words[3].toInt() / 2);
        int i = 0;
        do { // so that it does not have to open the file that is left
            count('c', i, i + 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        } while (++i, !QFile::exists(u"gone"_s));
        countOnTwoThreads(words[3].toInt() / 2, words[3].toInt());
    }

    void isKilled()
    {
        countOnTwoThreads(0, 1);
        std::thread([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(words[3].toInt()));
            std::raise(SIGKILL);
        }).detach();
        countOnTwoThreads(1, INT_MAX);
    }

    // Until its worker thread has slept for a second.
    void isIdle()
    {
        count('a', 0, 5);
        for (long before = -1; before < 0 || before != sleeps();) {
            before = sleeps();
            std::this_thread::sleep_for(std::chrono::seconds(full ? 3 : 1));
        }
        std::raise(SIGKILL);
    }

    void reloads()
    {
        QSettings settings(u"Quadel_Log.ini"_s, QSettings::IniFormat);
        for (int i = 0; i < words[3].toInt(); i += 20) {
            std::thread others(countOnTwoThreads, i, i + 20);
            Zyr::Logger::instance().createLoggerBySettings(settings);
            others.join();
        }
    }
};

struct Row
{
    const char* name;
    const char* keys;     // in addition to those that every row has
    const char* script;   // ends with status 0; `run` starts a scenario
    int number;           // $N there; 0 when it is the files that are expected, and how their lines begin
    const char* expected; // else an expression for the numbers of each writer's records, $L being the last one of $N
    int cutLines = 0;     // at most
    const char* errors = "";
};

#define SHARED "log file '[^']*': .*"
#define ROTATES "run writes 1 $N; [ $(ls log | wc -l) -gt $((N / 2650)) ]"
#define BOTH(of) "{ run writesFirst 1 $N " of " $end; touch gone; } & run writesSecond 2 $N " of "; wait; "
#define DOES_NOT_GROW "[ $(stat -c %s log/Quadel.log) -lt 600000 ]"
#define KILLS "for k in $(seq 10 $((N + 9))); do run isKilled k$k $(shuf -i 20-300 -n 1); run writes r$k 50; done"
#define KILLED_AND_WHOLE "(k\\d\\d[ab]:0-\\d+ )*(r\\d\\da:0-49 r\\d\\db:0-49 ?){$N}"

const int kills = full ? 10 : 3;
const int records = full ? 500'000 : 30'000;

const Row rows[] = {
    // A record that is lost or doubled where the file changes; archives that overtake each other; an archive or a
    // temporary file that is forgotten; a hole in the numbers.
    {"rotates number", "rotation=1 M", ROTATES, records, "1a:0-$L 1b:0-$L"},
    {"rotates timestamp", "rotation=1 M\narchive=timestamp", ROTATES, records, "1a:0-$L 1b:0-$L"},
    // Other archives kept than the newest ones, or not that many.
    {"keeps the newest", "rotation=200 K\npurgeCount=10", "run writes 1 $N; [ $(ls log | wc -l) = 11 ]", records,
     "(1[ab]:\\d+-$L ?)+"},
    // A line that is written to an archive while that is compressed, or between the halves of another one; a file that
    // grows for ever when the process that rotated it is gone; a report for each rotation.
    {"two, one ends", "rotation=300 K\narchive=timestamp", BOTH("197") DOES_NOT_GROW, records / 2,
     "1a:0-$L 1b:0-$L 2a:0-$L 2b:0-$L 2c:0-\\d+", 0, SHARED},
    // What was still queued is gone, and one line may be cut off.
    {"two, one is killed", "rotation=300 K", "end=killed; " BOTH("197") DOES_NOT_GROW, records / 2,
     "1a:0-\\d+ 1b:0-\\d+ 2a:0-$L 2b:0-$L 2c:0-\\d+", 1, SHARED},
    // A record that is torn where the queue or a write is full; one longer than the queue, which waits for ever.
    {"two with long records", "rotation=10 M\nqueueSize=64 K", BOTH("300000"), full ? 200 : 40,
     "1a:0-$L 1b:0-$L 2a:0-$L 2b:0-$L 2c:0-\\d+", 0, SHARED},
    // A log that is left under its hidden name, an archive that is overwritten because its numbers have a hole, a
    // gzipped file that is not whole, a cut off line that the next one continues, files of steps that were not ended.
    {"kills number", "rotation=100 K", KILLS, kills, KILLED_AND_WHOLE, kills},
    {"kills timestamp", "rotation=100 K\narchive=timestamp", KILLS, kills, KILLED_AND_WHOLE, kills},
    // Records that wait for more of them, a worker thread that wakes up although nothing is to be done.
    {"idle, never", "rotation=never\nflush=false", "run isIdle 1 0; [ $? = 137 ]", 5, "1a:0-$L"},
    {"idle, interval", "rotation=1 seconds\nflush=true", "run isIdle 1 0; [ $? = 137 ] && rm log/.Quadel.log.since", 5,
     "1a:0-$L"},
    // A line that is lost, doubled or goes to an archive when files are opened and rotated at the same time.
    {"reloads", "rotation=20 K", "run reloads 1 $N", full ? 300'000 : 15'000, "1a:0-$L 1b:0-$L"},
    // What a killed process was just moving away or compressing, left under its hidden name; a log that goes on
    // although each start is to begin one.
    {"left-overs", "compress=false\nrotateOnOpen=true",
     "for i in next gz-part; do echo $i >log/.Quadel.log.$i; done; echo L >log/Quadel.log; run writes 1 1", 0,
     "Quadel.log:{1 Quadel.log.0:L Quadel.log.1:ne"},
    // A log or an archive that others may read than could before.
    {"rights", "compress=false\nrotateOnOpen=true",
     "echo L >log/Quadel.log; chmod 640 log/*; run writes 1 1; [ $(stat -c %a log/* | sort -u) = 640 ]", 0,
     "Quadel.log:{1 Quadel.log.0:L"},
    // An interval that begins anew at each start of the program, or that is kept as a line of the log.
    {"interval", "compress=false\nrotation=1 hours",
     "run writes 1 1; run writes 2 1; since=log/.Quadel.log.since; echo $(($(cat $since) - 3600)) >$since;"
     "run writes 3 1; rm $since",
     0, "Quadel.log:{3 Quadel.log.0:{1,{2"},
    // A time of day that was missed while the program did not run.
    {"time of day", "compress=false\nrotation=12:00",
     "echo L >log/Quadel.log; touch -d '2 days ago' log/*; run writes 1 1", 0, "Quadel.log:{1 Quadel.log.0:L"},
};

/// Like "1a:0-499 1b:0-499": all numbers of each writer, which become sorted.
QString sequences(std::map<QByteArray, std::vector<int>>& numbers)
{
    QByteArrayList result;
    for (auto& [writer, all] : numbers) {
        std::sort(all.begin(), all.end());
        result += writer + ':';
        for (std::size_t i = 0, begin = 0; i < all.size(); ++i) {
            if (i + 1 < all.size() && all[i + 1] == all[i] + 1)
                continue;
            result.back() += (begin > 0 ? "," : "") + QByteArray::number(all[begin]) + '-' + QByteArray::number(all[i]);
            begin = i + 1;
        }
    }
    return QString::fromLatin1(result.join(' '));
}

bool matches(const QString& text, const QString& expression)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(expression)).match(text).hasMatch();
}

} // namespace

class tst_Rotation : public QObject
{
    Q_OBJECT
    const TestPlace place;

    QString path(const Row& row, const char* file) const
    {
        return QString::fromLatin1(row.name) + u'/' + QString::fromLatin1(file);
    }

    /// Runs a script among a row's log files.
    int shell(const Row& row, const QString& script) const
    {
        return std::system(qPrintable(u"cd '%1'; exec 2>../looked; "_s.arg(place.path(path(row, "log"))) + script));
    }

    static void addRows(bool ofFiles)
    {
        QTest::addColumn<const Row*>("row");
        for (const Row& row : rows) {
            if ((row.number == 0) == ofFiles)
                QTest::newRow(row.name) << &row;
        }
    }

private Q_SLOTS:
    // In parallel: they mostly wait.
    void initTestCase()
    {
        const QByteArray keys = "pattern={%t}\ncompress=true\npurgeAge=none\npurgeCount=1000000\n";
        const QString run =
            u"(cd '%1'; export QUADEL_CURRENT_LOG_LOCATION=$PWD/log QUADEL_CURRENT_CONFIG_LOCATION=$PWD;"
            "run() { timeout %2 $ZYR_TEST_EMULATOR '%3' \"$@\" 2>>error; };"
            "exec 2>shell; N=%4; %5\necho $? >status) &\n"_s;
        QString script;
        for (const Row& row : rows) {
            QDir().mkpath(place.path(path(row, "log")));
            place.write(path(row, "Quadel_Log.ini"), settingsFile({}, keys + row.keys));
            script += run.arg(place.path(path(row, "")))
                          .arg(full ? 3000 : 60)
                          .arg(QCoreApplication::applicationFilePath())
                          .arg(row.number)
                          .arg(QString::fromLatin1(row.script));
        }
        QCOMPARE(std::system(qPrintable(script + u"wait"_s)), 0);
    }

    void records_data() { addRows(false); }
    void records()
    {
        QFETCH(const Row* const, row);
        const bool timestamped = QByteArray(row->keys).contains("timestamp");
        const QString look = u"{ gzip -dcf $(ls -v%1 Quadel.log.[0-9]*); cat Quadel.log; } >../all; "
                             "grep -v Killed ../error >../errors; " // the shell tells that
                             "ls -A | sed 's/[.]gz$//' | sort -V >../names; "
                             "! ls | grep -q gz$ || gzip -t *.gz"_s;
        QCOMPARE(shell(*row, look.arg(timestamped ? u""_s : u"r"_s)), 0);

        std::map<QByteArray, std::vector<int>> numbers; // of each writer
        QByteArrayList cutLines;
        std::ifstream lines(QFile::encodeName(place.path(path(*row, "all"))).toStdString());
        for (std::string line; std::getline(lines, line);) {
            const QByteArray bytes = QByteArray::fromStdString(line);
            const QByteArrayList parts = bytes.left(bytes.lastIndexOf(' ')).mid(1).split(' ');
            const int number = parts.size() == 2 ? parts[1].toInt() : -1;
            if (number >= 0 && bytes == '{' + recordText(parts[0], number, bytes.size() - 2) + '}')
                numbers[parts[0]].push_back(number);
            else
                cutLines += bytes;
        }
        for (const auto& [writer, all] : numbers)
            QVERIFY2(std::is_sorted(all.begin(), all.end()), writer.constData());
        const QString found = sequences(numbers);
        QString expected = QString::fromLatin1(row->expected);
        expected.replace(u"$N"_s, QString::number(row->number)).replace(u"$L"_s, QString::number(row->number - 1));
        QVERIFY2(matches(found, expected), qPrintable(found));
        QVERIFY2(cutLines.size() <= row->cutLines, cutLines.join('\n').left(1000).constData());
        const QStringList names = place.lines(path(*row, "names")); // a hole or a pair of equal ones moves the others
        for (qsizetype i = 0; i < names.size(); ++i) {
            const QString suffix = timestamped ? u"\\.\\d{17}"_s : u"\\.%1"_s.arg(i - 1);
            QVERIFY2(matches(names[i], u"Quadel\\.log"_s + (i > 0 ? suffix : u""_s)), qPrintable(names.join(u' ')));
        }
        const QString errors = place.lines(path(*row, "errors")).join(u'\n');
        QVERIFY2(matches(errors, QString::fromLatin1(row->errors)), qPrintable(errors));
        QCOMPARE(place.read(path(*row, "status")), "0\n");
    }

    void files_data() { addRows(true); }
    void files()
    {
        QFETCH(const Row* const, row);
        QCOMPARE(shell(*row, u"for f in $(ls -vA); do echo $f:$(cut -c1-2 $f | sort -u | paste -sd,); done | "
                             "paste -sd' ' >../files"_s),
                 0);
        QCOMPARE(place.read(path(*row, "files")).trimmed(), QByteArray(row->expected));
        QCOMPARE(place.read(path(*row, "status")), "0\n");
    }
};

int main(int count, char* arguments[])
{
    for (int i = 0; i < count; ++i)
        words += QString::fromLocal8Bit(arguments[i]);
    if (Scenarios scenarios; count > 3 && QMetaObject::invokeMethod(&scenarios, arguments[1]))
        return 0;
    const QCoreApplication application(count, arguments);
    tst_Rotation test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_rotation.moc"
