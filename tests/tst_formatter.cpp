// Log lines: POCO's own formatter is the model wherever it is right, the C library for local time.

#include "base/LocalTime.h"
#include "base/ShortCopy.h"
#include "chain/LineFormatter.h"

#include <QtTest/QtTest>

#include <Poco/Exception.h>

#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

using Poco::PatternFormatter;

class tst_Formatter : public QObject
{
    Q_OBJECT
    QRandomGenerator random{1};
    Zyr::LineFormatter ours;

    const auto& oneOf(const auto& list) { return *std::next(list.begin(), random.bounded(int(list.size()))); }

    static void configure(PatternFormatter& formatter, const std::string& pattern, const std::string& times)
    {
        formatter.setProperty("pattern", pattern);
        formatter.setProperty("times", times);
        formatter.setProperty("priorityNames", " fatal;b,c d,e,f,info,h,i");
    }
    static std::string format(PatternFormatter& formatter, const Poco::Message& message)
    {
        std::string line = "line: "; // is kept
        formatter.format(message, line);
        return line;
    }
    static Poco::Message message(qint64 microseconds)
    {
        Poco::Message made("source", "text", Poco::Message::PRIO_INFORMATION);
        made.setTime(microseconds);
        return made;
    }
    Poco::Message anyMessage()
    {
        static const QList<qint64> times{0, -1, 951'782'399, 951'782'400, -86'400, 4'107'542'399, 253'402'300'800};
        static const std::vector<std::string> texts{"", "a", "source.of.it", std::string(2000, 'x'), "\"%t\"\xC3\xBC"};
        static const QList<const char*> files{nullptr, "", "file.cpp", "/a/b.c/file", "/dir/", "a//b", ".."};
        Poco::Message made(oneOf(texts), oneOf(texts), Poco::Message::Priority(random.bounded(1, 9)), oneOf(files),
                           random.bounded(-1, 5000));
        made.setTime((random.bounded(2) ? oneOf(times) : random.bounded(INT_MAX)) * 1'000'000 +
                     random.bounded(999'999));
        made.setThread(oneOf(texts));
        made.setTid(random.bounded(-1, 9999));
        made.set("n", oneOf(texts));
        return made;
    }
    std::string anyPattern() // without %%, %E and negative widths, which POCO gets wrong
    {
        static const QByteArray letters = "stlpqPTINUOuwWbBdefmnoyYHhaAMSicFzZLvxXr 0]\1";
        static const auto others =
            (QByteArray("|-|more than 16 bytes|[|%[n]|%[|%[no]|%v[3]|%v[20]|") + QByteArray(170, '=')).split('|');
        QByteArray pattern;
        for (int count = random.bounded(24); count > 0; --count)
            pattern += random.bounded(3) ? QByteArray("%") + oneOf(letters) : oneOf(others);
        while (pattern.contains("%%"))
            pattern.replace("%%", "%");
        return pattern.toStdString();
    }
    static void enterZone(const char* zone)
    {
        const auto before = Zyr::LocalTime::checkZone();
        ::setenv("TZ", zone, 1); // nothing of Qt's, which may tell the C library
        QTRY_VERIFY(Zyr::LocalTime::checkZone() != before);
    }

#if defined(__x86_64__)
    /// Whether something is in the upper part of a vector register of 256 bits, as the processor tells.
    static bool usesUpperParts()
    {
        unsigned low, high;
        asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(1));
        return low & 4;
    }
    static bool canTellUse()
    {
        unsigned a, b, c, d;
        return __builtin_cpu_supports("avx") && __get_cpuid_count(13, 1, &a, &b, &c, &d) && (a & 4);
    }
#endif

private Q_SLOTS:
    // A letter, bracket or padding with another meaning; a second cached for too long, or for another pattern; an %L
    // that outlasts its record, or takes effect too late.
    void givesTheLinesOfPoco()
    {
        for (const char* zone : {"UTC0", "<+0545>-5:45", "<-0330>3:30"}) {
            enterZone(zone);
            Poco::Message record = anyMessage();
            for (int round = 0; round < 3000; ++round) {
                PatternFormatter stock;
                const std::string times = round % 2 ? "local" : "UTC", pattern = anyPattern();
                configure(stock, pattern, times);
                configure(ours, pattern, times);
                for (int count = 0; count < 3; ++count) {
                    if (count > 0)
                        record = anyMessage();
                    QVERIFY2(format(ours, record) == format(stock, record), pattern.c_str());
                }
            }
        }
    }

    // What POCO gets wrong: no percent sign, a second of the epoch or a weekday that is not the date's.
    void isRightWherePocoIsNot()
    {
        const std::tuple<const char*, qint64, const char*> rows[] = {
            {"100%%[n] %%t%%%t", 0, "100%[n] %t%text"},
            {"%E.%F %S", -500'000, "-1.500000 59"},
            {"%w %W", 4'107'542'399'999'999, "Sun Sunday"}}; // not yet Monday
        for (const auto& [pattern, time, line] : rows) {
            configure(ours, pattern, "UTC");
            QCOMPARE(format(ours, message(time)), std::string("line: ") + line);
        }
    }

    // Today's offset, the standard one or whole hours for all records; a change of the zone that is missed, even within
    // one second.
    void showsTheTimeOfTheZone()
    {
        configure(ours, "%Y-%m-%d %H:%M:%S %Z", "local");
        for (const char* zone : {"Europe/Berlin", "Europe/Dublin", "Australia/Lord_Howe", "America/St_Johns"}) {
            constexpr time_t first = -2'000'000'000, last = 2'330'000'000; // in 2043
            format(ours, message(first * qint64(1'000'000)));              // in the zone before, and below
            enterZone(zone);
            for (int count = 1; count < 32; ++count)
                format(ours, message(first * qint64(1'000'000))); // maybe as in the zone before
            for (time_t second = first, step = 1800; second < last; second += step) {
                step = second > 1'700'000'000 && second < 1'740'000'000 ? 1800 : 999'983;
                const std::string line = format(ours, message(second * qint64(1'000'000))); // strftime() reads TZ, too
                tm fields;
                char expected[200];
                strftime(expected, sizeof expected, "line: %Y-%m-%d %H:%M:%S %z", localtime_r(&second, &fields));
                QCOMPARE(line, std::string(expected));
            }
        }
    }

    // A huge width, many widths or a text many times, so that each line takes all memory; a harmless pattern refused.
    void refusesToGrowWithoutBound()
    {
        const auto repeated = [](const char* text, int count) {
            return QByteArray(text).repeated(count).toStdString();
        };
        for (const std::string& pattern : {repeated("x", 4096), "%v[4000]%v[96]" + repeated("%t", 30),
                                           repeated("%p", 32), std::string("%t[9999]%v[-1]%v[99999999999]")}) {
            ours.setProperty("pattern", pattern);
            QCOMPARE(ours.getProperty("pattern"), pattern);
            for (const std::string& grown :
                 {repeated("x", 4097), std::string("%v[4000]%v[97]"), repeated("%t%s%p%U", 8) + "%[x]",
                  "%v[1]" + repeated("%v[2147483647]", 2), repeated("%v[2147483647]", 4)})
                QVERIFY_THROWS_EXCEPTION(Poco::InvalidArgumentException, ours.setProperty("pattern", grown));
            QCOMPARE(ours.getProperty("pattern"), pattern);
        }
    }

    // Half of a refused change; refused names that getProperty() shows.
    void refusesAsPocoDoes()
    {
        configure(ours, "%p", "local");
        for (const char* names : {"", "a,b,c,d,e,f,g", "a,b,c,d,e,f,g,h,"})
            QVERIFY_THROWS_EXCEPTION(Poco::SyntaxException, ours.setProperty("priorityNames", names));
        QCOMPARE(ours.getProperty("priorityNames"), std::string(" fatal;b,c d,e,f,info,h,i"));
        QCOMPARE(format(ours, message(0)), std::string("line: info"));
    }

    // A line of two patterns, one that is freed while it is in use, a new one at each reload; a child that waits for
    // the C library's lock, which a thread that it does not have holds.
    void changesAndForksBetweenRecords()
    {
        configure(ours, "a%ta%pa", "local");
        const auto patterns = ours.patterns();
        const Zyr::LinePattern* const first = &patterns->current();
        std::atomic<bool> torn = false;
        int status = 0;
        {
            const std::jthread formatting([&](const std::stop_token& stop) {
                while (!stop.stop_requested()) {
                    Zyr::LineBuffer line;
                    patterns->current().format(message(0), line);
                    torn = torn || (line.view() != "atextainfoa" && line.view() != "btextbinfob");
                    Zyr::LocalTime::offsetAt(0);
                }
            });
            for (int round = 0; round < 1000; ++round)
                ours.setProperty("pattern", round % 2 ? "a%ta%pa" : "b%tb%pb");
            for (int round = 0; round < 100 && status == 0; ++round) {
                if (fork() == 0) {
                    alarm(10);
                    Zyr::LocalTime::afterForkInChild();
                    Zyr::LocalTime::offsetAt(0);
                    _exit(0);
                }
                wait(&status);
            }
        }
        QVERIFY(!torn && status == 0);
        QCOMPARE(&patterns->current(), first);
    }

    // A byte too many or too few at the size where another way to copy takes over; AddressSanitizer finds reads behind
    // the source.
    void copiesEveryLength()
    {
        for (std::size_t size = 0; size < 600; ++size) {
            std::vector<char> source(size);
            for (char& byte : source)
                byte = char(random.bounded(256));
            std::vector<char> target(size + 40, '=');
            Zyr::copyShort(target.data() + 20, source.data(), size);
            std::vector<char> expected(size + 40, '=');
            std::copy(source.begin(), source.end(), expected.begin() + 20);
            QVERIFY2(target == expected, qPrintable(QString::number(size)));
        }
    }

    // A caller's vector registers that slow the formatting down.
    void cleansVectorRegisters()
    {
#if defined(__x86_64__)
        if (!canTellUse())
            QSKIP("The processor does not tell whether its vector registers are in use");
        configure(ours, "%t", "UTC");
        const Poco::Message record = message(0);
        std::string line;
        asm volatile("vcmptrueps %%ymm15, %%ymm15, %%ymm15" ::: "xmm15");
        const bool before = usesUpperParts();
        ours.format(record, line);
        const bool after = usesUpperParts();
        QVERIFY(before && !after);
#else
        QSKIP("There are no registers whose parts code for SSE leaves as they are");
#endif
    }
};

QTEST_GUILESS_MAIN(tst_Formatter)
#include "tst_formatter.moc"
