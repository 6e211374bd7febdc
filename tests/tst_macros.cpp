// The logging macros: what is evaluated, what is removed, what an entry carries, and what a place in the source counts.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <ZyrLogger/Macros.h>

#include <QtTest/QtTest>

#include <thread>

using namespace Qt::StringLiterals;

class tst_Macros : public QObject
{
    Q_OBJECT
    const TestPlace place;
    Zyr::Logger logger{u"tst"_s, u"tst.log"_s, place.write(u"tst.ini"_s, settingsFile("level=information"))};
    static inline std::uint32_t ticks = 0;

    static std::uint32_t clock() noexcept
    {
        std::this_thread::yield(); // between what a call reads and what it writes
        return ticks;
    }

    /// How many of the calls that four threads make at the same time return true.
    static int passes(bool call())
    {
        std::atomic<int> count = 0;
        const auto callOften = [&] {
            for (int left = 100'000; left > 0; --left)
                count += call();
        };
        for (std::vector<std::jthread> threads; threads.size() < 4;)
            threads.emplace_back(callOften);
        return count;
    }

private Q_SLOTS:
    // A macro with another's level, target or form, or without the source; a statement that is removed by default.
    void everyMacro()
    {
        place.write(u"tst_macros_Log.ini"_s, settingsFile());
        place.write(u"tst_macros_Valve_Log.ini"_s, settingsFile());
        Zyr::ClassLogger valve(u"Valve"_s);
        const RecordingListener ofMain(Zyr::Logger::instance()), ofValve(valve.getLogger());
        // clang-format off
#define LOG(level) for (int i = 0; i < 3; ++i) { \
            ZYR_##level("1").endl(); ZYR_##level##_EVERY(2, "2").endl(); ZYR_##level##_AT_MOST(i == 1, "3").endl(); \
            ZYR_##level##_TO(valve, "1").endl(); ZYR_##level##_EVERY_TO(valve, 2, "2").endl(); \
            ZYR_##level##_AT_MOST_TO(valve, i == 1, "3").endl(); }
        const QString source = u" [tst_macros.cpp, Line %1]"_s.arg(__LINE__ + 1);
        LOG(EMERG) LOG(ALERT) LOG(CRITICAL) LOG(ERROR) LOG(WARNING) LOG(NOTICE) LOG(INFO) LOG(DEBUG) LOG(TRACE)
        LOG(SYSTEM) LOG(TODO)
        QStringList records; // clang-format on
        for (const char* level : {"fatal ", "fatal ", "panic ", "error ", "warn ", "notice ", "info ", "debug ",
                                  "trace ", "notice <SYS> ", "debug <TODO> "})
            for (const QChar text : u"121312"_s)
                records += QString::fromLatin1(level) + text + (records.size() < 6 ? source : QString());
        QCOMPARE(ofMain.records() + ofValve.records(), records + records);
    }

#undef ZYR_LOG_FLOOR
#define ZYR_LOG_FLOOR lowest
    // Arguments or `n` evaluated while the level is off, a logger evaluated twice or when removed; an else that goes
    // with the macro's own if, or braces that a compiler asks for (as a warning); a name that is hidden by the same
    // name in an inner statement (as a warning).
    void isOneStatement()
    {
        const RecordingListener listener(logger);
        constexpr auto lowest = Zyr::Debug;
        int evaluated = 0;
        for (const bool condition : {true, false}) { // clang-format off
            if (condition)
                ZYR_INFO_TO((++evaluated, logger), "%1").arg([&] { ZYR_INFO_TO(logger, "in").endl(); return 2; }()).endl();
            else ++evaluated;
            if (condition) ZYR_DEBUG_EVERY_TO(logger, ++evaluated, "off").topic({}, ++evaluated).endl();
            else ZYR_INFO_EVERY_TO(logger, -1, "else").endl();
            if (condition) ZYR_TRACE_TO((++evaluated, logger), "removed").endl();
            else ++evaluated;
            if (!condition) ZYR_ERROR_TO(logger, "no else").endl();
        } // clang-format on
        QCOMPARE(evaluated, 3);
        QCOMPARE(listener.records(), QStringList({u"info in"_s, u"info 2"_s, u"info else"_s, u"error no else"_s}));
    }

    // A floor that compares the levels' numbers: it would remove System and Alert.
    void floorComparesPriorities()
    {
        const RecordingListener listener(logger);
        {
            constexpr auto lowest = Zyr::Notice;
            ZYR_SYSTEM_TO(logger, "kept").endl();
        }
        constexpr auto lowest = Zyr::Emerg;
        ZYR_ALERT_TO(logger, "kept").endl();
        ZYR_CRITICAL_TO(logger, "removed").endl();
        QCOMPARE(listener.records(), QStringList({u"notice <SYS> kept"_s, u"fatal kept"_s}));
    }

    // Calls of two threads that count as one, or that both pass as the last.
    void countsAcrossThreads()
    {
        static Zyr::Detail::EveryNth every;
        QCOMPARE(passes([] { return every.pass(7); }), 57'143);
        static Zyr::Detail::AtMostPerSecond atMost;
        QCOMPARE(passes([] { return atMost.pass(5'000, clock); }), 5'000);
    }

    // A second that ends early or never, also while the clock wraps around; the count of one that began 4096 seconds
    // ago taken over; a clock that stands or runs at another rate.
    void beginsNewSeconds()
    {
        Zyr::Detail::AtMostPerSecond site;
        QByteArray passed;
        for (const std::uint32_t now : {0u, 17u, 18u, 35u, 36u, 0x10024u, 0xfffffff8u, 9u, 10u, 0x8000'000au}) {
            ticks = now;
            passed += char('0' + site.pass(2, clock) + site.pass(2, clock) + site.pass(2, clock));
        }
        QCOMPARE(passed, "2020222022");
        constexpr auto lowest = Zyr::Info;
        int evaluated = 0;
        const auto log = [&] { ZYR_INFO_AT_MOST_TO(logger, 2, "x").topic({}, ++evaluated).endl(); };
        const auto begun = std::chrono::steady_clock::now();
        QTRY_VERIFY((log(), evaluated > 2));
        QVERIFY(std::chrono::steady_clock::now() - begun >= std::chrono::seconds(1));
    }
};

QTEST_GUILESS_MAIN(tst_Macros)
#include "tst_macros.moc"
