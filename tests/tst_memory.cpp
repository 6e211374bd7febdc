// The memory that an entry takes: values that multiply, and entries that there is none for.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <thread>
#include <utility>

#include <malloc.h>
#include <sys/prctl.h>

using namespace Qt::StringLiterals;

namespace {

// Of the calling thread:
constexpr long any = std::numeric_limits<long>::max();
constinit thread_local long allowed = any; ///< allocations that succeed before all others fail
constinit thread_local long refused = 0;
constinit thread_local std::ptrdiff_t taken = 0;
constinit thread_local std::ptrdiff_t peak = 0;

// Of the worker thread:
constinit std::atomic<long> workerAllowed = any;
constinit std::atomic<long> workerRefused = 0;

} // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// Replace the C library's functions for all libraries of the process; operator new calls them too.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);

static bool isWorker() noexcept
{
    char name[16] = {};
    return ::prctl(PR_GET_NAME, name) == 0 && std::strcmp(name, "LogWriter") == 0;
}

static bool isAllowed() noexcept
{
    if (workerAllowed != any && isWorker() && --workerAllowed < 0) {
        ++workerRefused;
        errno = ENOMEM;
        return false;
    }
    if (allowed > 0) {
        allowed -= allowed != any;
        return true;
    }
    ++refused;
    errno = ENOMEM;
    return false;
}

static void* note(void* memory) noexcept
{
    taken += static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
    peak = std::max(peak, taken);
    return memory;
}

void* malloc(std::size_t size) noexcept
{
    return isAllowed() ? note(__libc_malloc(size)) : nullptr;
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    return isAllowed() ? note(__libc_calloc(count, size)) : nullptr;
}

void* realloc(void* memory, std::size_t size) noexcept
{
    if (!isAllowed())
        return nullptr;
    taken -= static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
    return note(__libc_realloc(memory, size));
}

void free(void* memory) noexcept
{
    taken -= static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
    __libc_free(memory);
}
}

#endif

class tst_Memory : public QObject
{
    Q_OBJECT
    const TestPlace place;
    Zyr::Logger logger{u"tst"_s, u"tst.log"_s, place.write(u"tst.ini"_s, settingsFile())};

private Q_SLOTS:
    void initTestCase()
    {
        if (isSanitized)
            QSKIP("Sanitizers need the allocator for themselves.");
    }

    // Gigabytes that three short values become, or a short one that stands in a text often.
    void isBounded_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("values");
        const auto placeholders = [](char name, int bytes) {
            return (u'%' + QString(QLatin1Char(name))).repeated(bytes / 2);
        };
        for (const int size : {600, 4'000, 100'000}) {
            const QStringList values = {QString(size, u'x'), placeholders('1', size), placeholders('2', size)};
            QTest::addRow("arguments of %d", size) << u"%3%3"_s << values;
            QTest::addRow("topics of %d", size)
                << u"%a"_s << QStringList{placeholders('b', size), placeholders('c', size), values[0]};
        }
        QTest::newRow("text") << placeholders('1', 4000) << QStringList{QString(500'000, u'x')};
    }

    void isBounded()
    {
        QFETCH(const QString, text);
        QFETCH(const QStringList, values);
        const bool areTopics = text.startsWith(u"%a"_s);
        Zyr::LogMessage& message = logger.out(Zyr::Info, text);
        qsizetype size = text.size();
        for (qsizetype i = 0; i < values.size(); ++i) {
            size += values[i].size();
            static_cast<void>(areTopics ? message.topic(QString(QChar(u'a' + char16_t(i))), values[i])
                                        : message.arg(values[i]));
        }
        const std::ptrdiff_t before = peak = taken;
        message.endl();
        constexpr qsizetype megabyte = 1 << 20;
        qInfo("%.1f MB", double(peak - before) / megabyte);
        QVERIFY(peak - before < 16 * (size + megabyte));
        const QString mark = u" [placeholders left unfilled: the text would be too long]"_s;
        QTRY_VERIFY(place.lines(u"tst.log"_s).value(0).endsWith(mark));
        const qsizetype length = place.lines(u"tst.log"_s)[0].size();
        QVERIFY2(length <= size + megabyte + mark.size() && length > megabyte / 2, qPrintable(QString::number(length)));
        place.write(u"tst.log"_s, {});
    }

    // An entry that is lost unreported because any allocation on its path failed, or reported as lost although it is in
    // the file; a crash.
    void tellsWhatItHasNoneFor_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("value");
        const QString padding(20'000, u'x'); // more than the library keeps memory for
        QTest::newRow("one pass") << QByteArray() << int(Zyr::Info) << padding;
        QTest::newRow("steps") << QByteArray() << int(Zyr::Info) << u"%1"_s + padding;
        QTest::newRow("short") << QByteArray() << int(Zyr::Todo) << u"%x"_s;
        QTest::newRow("source") << QByteArray() << int(Zyr::Emerg) << padding;
        QTest::newRow("filtered") << QByteArray("textFilters=entry") << int(Zyr::Info) << u"%1"_s + padding;
        QTest::newRow("repeats") << QByteArray("checkRepeatedMsg=true\namountRepeatedMsg=1") << int(Zyr::Info)
                                 << padding;
    }

    void tellsWhatItHasNoneFor()
    {
        QFETCH(const QByteArray, settings);
        QFETCH(const int, level);
        QFETCH(const QString, value);
        place.write(u"tst.log"_s, {});
        place.load(logger, settingsFile(settings));
        const RecordingListener listener(logger); // needs memory behind the queue
        int entries = 0;
        int refusals = 0;
        const auto log = [&](int number, long allocations) {
            Zyr::LogMessage& message =
                logger.out(uchar(level), u"entry %2 %x %1"_s, "a.cpp").arg(value).arg(number).topic(u"x"_s, number);
            allowed = allocations;
            message.endl();
            allowed = any;
            ++entries;
            return std::exchange(refused, 0) > 0;
        };
        bool isRefused = true;
        for (int number = 0; isRefused; ++number) {
            const auto logBoth = [&] {
                isRefused = log(number, number);
                if (settings.startsWith("check"))
                    log(number, any);
            };
            std::thread(logBoth).join(); // which has kept nothing of earlier entries
            refusals += isRefused;
        }
        logger.flushLog();
        qInfo("%d entries, %d with refusals", entries, refusals);
        QVERIFY(refusals > 10);

        const auto accounted = [&] {
            int records = 0;
            static const QRegularExpression loss(u"^warn (\\d+) records? lost: Cannot allocate memory$"_s);
            for (const QString& line : place.lines(u"tst.log"_s)) {
                const auto match = loss.match(line);
                records += match.hasMatch() ? match.captured(1).toInt() : line.contains(u"entry "_s);
            }
            return records;
        };
        QTRY_COMPARE(accounted(), entries);
        QVERIFY(place.read(u"tst.log"_s).contains(" lost: "));
    }

    // A record of lost entries that names no reason.
    void namesTheReasonOfALoss()
    {
        const QString name = u"a-name-beside-which-others-need-memory.log"_s;
        const QByteArray keys = "queueSize=64 K\nrotation=100 K\ncompress=false\npath=";
        place.write(name, QByteArray(200'000, 'x'));
        place.load(logger, settingsFile({}, keys + place.path(name).toUtf8()));
        workerAllowed = 0; // so that the file cannot be rotated
        for (int i = 0; i < 40; ++i)
            logger.out(Zyr::Info, u"entry %1 "_s + QString(2000, u'x')).arg(i).endl();
        QVERIFY(workerRefused > 0);
        workerAllowed = any;
        logger.flushLog();
        const auto reason = [&] { return place.lines(name).filter(u" lost: "_s).value(0).section(u" lost: "_s, 1); };
        QTRY_COMPARE(reason(), u"Cannot allocate memory"_s);
    }

    // Entries written twice or never, and settings that are forgotten, where the writing thread got no memory while it
    // took them up, opened the file or rotated it.
    void writesOnceWhenThereIsMemoryAgain_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<QString>("trace"); // of settings that were taken up
        QTest::newRow("size") << QByteArray("rotation=100\narchive=number\ncompress=false") << u"%1.1"_s;
        QTest::newRow("compressed") << QByteArray("rotation=100\narchive=number\ncompress=true") << u"%1"_s;
        QTest::newRow("interval") << QByteArray("rotation=3 days") << u".%1.since"_s;
        QTest::newRow("anew") << QByteArray("rotation=3 days\nrotateOnOpen=true\narchive=number\ncompress=false")
                              << u"%1.0"_s;
    }

    void writesOnceWhenThereIsMemoryAgain()
    {
        QFETCH(const QByteArray, keys);
        QFETCH(const QString, trace);
        long refusals = 1;
        int rounds = 0;
        for (; refusals > 0; ++rounds) {
            const QString name = u"%1-%2.log"_s.arg(QLatin1String(QTest::currentDataTag())).arg(rounds);
            place.write(name, "former\n");
            QStringList entries = {u"former"_s};
            const auto log = [&] {
                const QString entry = u"entry %1 which is as long as three of them"_s.arg(entries.size());
                logger.out(Zyr::Info, entry).endl();
                entries.append(u"info "_s + entry);
            };
            workerRefused = 0;
            workerAllowed = rounds;
            place.load(logger, settingsFile({}, keys + "\npath=" + place.path(name).toUtf8()));
            for (int i = 0; i < 6; ++i) { // a rotation or more between two of them
                log();
                QTRY_VERIFY(workerRefused > 0 || place.read(name).contains(entries.last().toUtf8()));
            }
            refusals = workerRefused;
            workerAllowed = any;
            const auto isTakenUp = [&] { return QFile::exists(place.path(trace.arg(name))); };
            do // a rotation is tried again after a second
                log();
            while (!QTest::qWaitFor(isTakenUp, 100) && entries.size() < 50);
            QVERIFY(isTakenUp());
            entries.sort();
            const auto all = [&] { // while an archive is synchronized there are both its files
                const QString command = u"cd '%1' && for f in %2*; do [ -e $f.gz ] || zcat -f $f; done >all"_s;
                QStringList lines;
                if (std::system(qPrintable(command.arg(place.path({}), name))) == 0)
                    lines = place.lines(u"all"_s);
                lines.sort();
                return lines;
            };
            QTRY_COMPARE_WITH_TIMEOUT(all(), entries, 30'000);
        }
        qInfo("%d rounds", rounds);
        QVERIFY(rounds > 5);
    }
};

QTEST_GUILESS_MAIN(tst_Memory)
#include "tst_memory.moc"
