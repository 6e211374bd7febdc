// Log lines: POCO's own formatter is the model wherever it is right, the C library for local time.

#include "chain/LineFormatter.h"
#include "chain/format/LocalTime.h"

#include <Poco/Exception.h>

#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Poco::PatternFormatter;

class tst_Formatter : public QObject
{
    Q_OBJECT
    QRandomGenerator random{1};
    Zyr::LineFormatter ours;

    const auto& oneOf(const auto& list) { return *std::next(list.begin(), random.bounded(int(list.size()))); }

    static void configure(PatternFormatter& formatter, const std::string& pattern, const std::string& times,
                          const std::string& names = "fatal,panic,error,warn,notice,info,debug,trace")
    {
        formatter.setProperty("pattern", pattern);
        formatter.setProperty("times", times);
        formatter.setProperty("priorityNames", names);
    }
    static std::string format(PatternFormatter& formatter, const Poco::Message& message)
    {
        std::string line = "line: "; // is kept
        formatter.format(message, line);
        return line;
    }
    static Poco::Message message(qint64 microseconds, int priority = 6)
    {
        Poco::Message made("source", "text", Poco::Message::Priority(priority));
        made.setTime(microseconds);
        return made;
    }
    Poco::Message anyMessage()
    {
        static const QList<qint64> times{0,          -1,         951'782'399,     951'782'400,     -86'400,
                                         1704067199, 4107542399, 253'402'300'800, -11'676'096'000, 1'715'933'730,
                                         -2147483649};
        static const QList<qint64> fractions{0, 1, 99'000, 123'456, 999'000};
        static const std::vector<std::string> texts{"", "a", "source.of.it", std::string(2000, 'x'), "\"%t\"\xC3\xBC"};
        static const QList<const char*> files{nullptr, "", "file.cpp", "/a/b.c/file", "/dir/", "a//b", ".."};
        Poco::Message made(oneOf(texts), oneOf(texts), Poco::Message::Priority(random.bounded(1, 9)), oneOf(files),
                           random.bounded(-1, 5000));
        made.setTime((random.bounded(2) ? oneOf(times) : random.bounded(INT_MAX)) * 1'000'000 + oneOf(fractions));
        made.setThread(oneOf(texts));
        made.setTid(random.bounded(-1, 9999));
        if (random.bounded(2))
            made.set("n", oneOf(texts));
        return made;
    }
    std::string anyPattern() // without %%, %E and negative widths, which POCO gets wrong
    {
        static const QByteArray letters = "stlpqPTINUOuwWbBdefmnoyYHhaAMSicFzZLvxXr 0]";
        static const QByteArrayList others = QByteArray("|-|a literal of more than 16 bytes|%|[|]|%[n]|%[|%[no]|%v[3]|"
                                                        "%v[20]|%v[0]|%v[x]|%v[1,0]|%v[9|%t[4]")
                                                 .split('|');
        QByteArray pattern;
        for (int count = random.bounded(12); count > 0; --count)
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

private Q_SLOTS:
    // A letter, bracket or padding with another meaning; a second kept for too long; %L that lasts or comes too late.
    void givesTheLinesOfPoco()
    {
        const std::vector<std::string> timesValues{"local", "Local", "UTC"};
        for (const char* zone : {"UTC0", "<+0545>-5:45", "<-0330>3:30"}) {
            enterZone(zone);
            for (int round = 0; round < 3000; ++round) {
                PatternFormatter stock;
                const std::string times = oneOf(timesValues), pattern = anyPattern();
                configure(stock, pattern, times, " a;b,c d,e,f,g,h,i");
                configure(ours, pattern, times, " a;b,c d,e,f,g,h,i");
                QCOMPARE(ours.getProperty("times"), stock.getProperty("times"));
                for (int count = 0; count < 3; ++count) {
                    const Poco::Message record = anyMessage();
                    QVERIFY2(format(ours, record) == format(stock, record), pattern.c_str());
                }
            }
        }
    }

    // What POCO gets wrong: no percent sign, an exception, a second of the epoch or a weekday that is not the date's.
    void isRightWherePocoIsNot()
    {
        const std::tuple<const char*, qint64, int, const char*> rows[] = {
            {"100%%[n] %%t%%%t", 0, 6, "100%[n] %t%text"},
            {"%p%q%l", 0, 0, "000"},
            {"%q %p", 0, 1, "\xC3\xBC \xC3\xBCrst"},
            {"%q|", 0, 2, "|"},
            {"%v[-3]|%v[-2147483648]", 0, 6, "source|source"},
            {"%E.%F %S", -500'000, 6, "-1.500000 59"},
            {"%w %W", 4'107'542'399'999'999, 6, "Sun Sunday"}, // not yet Monday
            {"%Y-%m-%d %H:%M:%S %w %y", -62'135'596'801 * 1'000'000, 6, "0000-12-31 23:59:59 Sun 00"},
            {"%Y-%m-%dT%H:%M:%S.%F", INT64_MIN, 6, "-290308-12-21T19:59:05.224192"},
            {"%Y-%m-%d %H:%M:%S.%F", INT64_MAX, 6, "294247-01-10 04:00:54.775807"}};
        for (const auto& [pattern, time, priority, line] : rows) {
            configure(ours, pattern, "UTC", "\xC3\xBCrst,,c,d,e,f,g,h");
            QCOMPARE(format(ours, message(time, priority)), std::string("line: ") + line);
        }
    }

    // The offset of now, of standard time or of whole hours for all records; a zone that is not left again.
    void showsTheTimeOfTheZone()
    {
        configure(ours, "%Y-%m-%d %H:%M:%S %Z|%w|%W|%b|%B|%f|%y|%h|%A", "local");
        for (const char* zone : {"Europe/Berlin", "Europe/Dublin", "Australia/Lord_Howe", "America/St_Johns"}) {
            constexpr time_t first = -2'000'000'000;
            format(ours, message(first * qint64(1'000'000))); // in the zone before, and below
            enterZone(zone);
            for (time_t second = first, step = 1800; second < 2'140'000'000; second += step) {
                step = second > 1'700'000'000 && second < 1'740'000'000 ? 1800 : 999'983;
                const std::string line = format(ours, message(second * qint64(1'000'000))); // strftime() reads TZ, too
                tm fields;
                char expected[200];
                strftime(expected, sizeof expected, "line: %Y-%m-%d %H:%M:%S %z|%a|%A|%b|%B|%e|%y|%I|%p",
                         localtime_r(&second, &fields));
                QCOMPARE(line, std::string(expected));
            }
        }
    }

    // Half of a refused change; refused names that getProperty() shows; an unknown property that is let through.
    void refusesAsPocoDoes()
    {
        PatternFormatter stock;
        for (Zyr::LineFormatter fresh; const char* name : {"pattern", "times", "priorityNames"})
            QCOMPARE(fresh.getProperty(name), stock.getProperty(name));
        configure(ours, "%p", "local");
        for (const char* names : {"", "a,b,c,d,e,f,g", "a,b,c,d,e,f,g,h,"})
            QVERIFY_THROWS_EXCEPTION(Poco::SyntaxException, ours.setProperty("priorityNames", names));
        QVERIFY_THROWS_EXCEPTION(Poco::PropertyNotSupportedException, ours.setProperty("Pattern", "x"));
        QVERIFY_THROWS_EXCEPTION(Poco::PropertyNotSupportedException, ours.getProperty("Pattern"));
        QCOMPARE(ours.getProperty("priorityNames"), std::string("fatal,panic,error,warn,notice,info,debug,trace"));
        QCOMPARE(format(ours, message(0)), std::string("line: info"));
    }

    // A line of two patterns, one that is freed while it is in use, a new one at each reload.
    void changesBetweenRecords()
    {
        auto formatter = std::make_unique<Zyr::LineFormatter>();
        configure(*formatter, "a%ta%pa", "local");
        const auto patterns = formatter->patterns();
        const Zyr::LinePattern* const first = &patterns->inForce();
        std::atomic<bool> torn = false;
        const auto formatting = [&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                Zyr::LineBuffer line;
                patterns->inForce().format(message(0), line);
                torn = torn || (line.view() != "atextainfoa" && line.view() != "btextbinfob");
            }
        };
        {
            const std::jthread one(formatting), other(formatting);
            for (int round = 0; round < 1000; ++round)
                formatter->setProperty("pattern", round % 2 ? "a%ta%pa" : "b%tb%pb");
            formatter.reset();
        }
        QVERIFY(!torn);
        QCOMPARE(&patterns->inForce(), first);
    }

    // A child that waits for the lock of a thread that it does not have: the C library's, or the one of changes.
    void worksInTheChildOfAFork()
    {
        configure(ours, "%H", "local");
        const std::jthread asking([](const std::stop_token& stop) {
            while (!stop.stop_requested())
                Zyr::LocalTime::offsetAt(0);
        });
        const std::jthread changing([this](const std::stop_token& stop) {
            while (!stop.stop_requested())
                ours.setProperty("times", "local");
        });
        int status = 0;
        for (int round = 0; round < 100 && status == 0; ++round) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(10);
                Zyr::LocalTime::afterForkInChild();
                ours.afterForkInChild();
                ours.setProperty("times", "local");
                _exit(format(ours, message(round * 1'000'000)).size() == 8 ? 0 : 1);
            }
            waitpid(child, &status, 0);
        }
        QCOMPARE(status, 0);
    }
};

QTEST_GUILESS_MAIN(tst_Formatter)
#include "tst_formatter.moc"
