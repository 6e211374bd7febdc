// When a log file's time is up, by any zone's wall clock and by clocks that are set, and where its start is kept.

#include "TestPlace.h"

#include "chain/rotation/IntervalStart.h"
#include "chain/rotation/RotationTimer.h"
#include "chain/settings/FileProperties.h"

#include <QtTest/QtTest>

#include <array>
#include <ctime>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Time = Zyr::RotationTimer::Time;

static Time time(const char* iso)
{
    return Time(std::chrono::milliseconds(
        QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs).toMSecsSinceEpoch()));
}

static Zyr::RotationRule rule(const char* text)
{
    Zyr::FileProperties properties;
    properties.set("rotation", text);
    return properties.settings().rotation;
}

/// A timer for a file that was made and written at `written`, set up at `now`.
static Zyr::RotationTimer timer(const char* text, Time written, Time now, bool localTimes = false)
{
    Zyr::RotationTimer started;
    started.start(rule(text), localTimes, written, written, now);
    return started;
}

static bool isDueFrom(Zyr::RotationTimer timer, Time due)
{
    return !timer.isDue(due - 1ms) && timer.isDue(due);
}

class tst_RotationTimer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comesAtTheTimeOfDay()
    {
        using Case = std::array<const char*, 3>; // rotation, last written, due
        const std::vector<std::pair<const char*, std::vector<Case>>> zones = {
            // The minute counted that is already there; a second day, hour or week waited for; the wrong weekday.
            {"",
             {{"00:00", "2026-03-10T23:59:59.900Z", "2026-03-11T00:00Z"},
              {"00:00", "2026-03-11T00:00:00Z", "2026-03-12T00:00Z"},
              {"12:00", "2026-03-11T11:00:00+01:00", "2026-03-11T12:00Z"},
              {":35", "2026-03-11T12:34:59Z", "2026-03-11T12:35Z"},
              {"wed,18:59", "2026-11-23T20:00Z", "2026-11-25T18:59Z"},
              {"Sunday,00:00", "2026-11-28T23:00Z", "2026-11-29T00:00Z"},
              {"mon,:35", "2026-11-23T12:36Z", "2026-11-23T13:35Z"},
              {"mon,:35", "2026-11-23T23:36Z", "2026-11-30T00:35Z"}}},
            // A skipped hour waited for until the next day or week, or counted as an extra time by an hourly rule; an
            // hour that comes twice counted once; an offset taken from the wrong side of the change.
            {"CET-1CEST,M3.5.0,M10.5.0/3",
             {{"02:30", "2026-03-28T03:00+01:00", "2026-03-29T03:00+02:00"},
              {"02:30", "2026-03-29T03:00+02:00", "2026-03-30T02:30+02:00"},
              {"sun,02:30", "2026-03-23T03:00+01:00", "2026-03-29T03:00+02:00"},
              {":30", "2026-03-29T01:30+01:00", "2026-03-29T03:30+02:00"},
              {"02:30", "2026-10-25T01:00+02:00", "2026-10-25T02:30+02:00"},
              {"02:30", "2026-10-25T02:30+02:00", "2026-10-25T02:30+01:00"},
              {"sat,12:00", "2026-03-28T12:00+01:00", "2026-04-04T12:00+02:00"}}},
            // A change by half an hour: a skipped minute waited for by an hourly rule.
            {"<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",
             {{":15", "2026-10-04T01:15+10:30", "2026-10-04T02:30+11:00"},
              {":45", "2026-10-04T01:45+10:30", "2026-10-04T02:45+11:00"},
              {":45", "2026-04-05T01:45+11:00", "2026-04-05T01:45+10:30"}}},
            // An offset of odd seconds, as some zones have had: cut off to minutes.
            {"ODD0:44:30", {{"12:00", "2026-05-01T12:44:29Z", "2026-05-01T12:44:30Z"}}},
            // A Friday that was left out: waited for until the next one, or counted by a daily rule.
            {"Pacific/Apia",
             {{"fri,12:00", "2011-12-24T12:00-10:00", "2011-12-31T00:00+14:00"},
              {"12:00", "2011-12-29T12:00-10:00", "2011-12-31T12:00+14:00"}}}};
        for (const auto& [zone, cases] : zones) {
            if (QByteArray(zone).contains('/') && !QFile::exists(u"/usr/share/zoneinfo/"_s + QLatin1String(zone)))
                continue;
            const bool isLocal = *zone != '\0';
            qputenv("TZ", isLocal ? zone : "CET-1");
            ::tzset();
            for (const auto& [rotation, written, due] : cases) {
                // Set up at once, or after some days in which the process was down.
                for (const auto down : {0h, 200h}) {
                    auto started = timer(rotation, time(written), time(written) + down, isLocal);
                    QVERIFY2(started.isDue(time(written) + down) == (down > 0h), due);
                    QVERIFY2(isDueFrom(started, time(due)) && started.isDue(time(due) + 1000h), due);
                }
            }
        }
    }

    // An interval counted from the last record, or from the start of the process; one second too late.
    void comesAfterTheInterval()
    {
        const Time began = time("2026-03-11T12:00:00.250Z");
        Zyr::RotationTimer started;
        started.start(rule("2 hours"), true, began, began + 119min, began + 119min);
        QVERIFY(isDueFrom(started, began + 2h));
        for (const char* text : {"never", "1"})
            QVERIFY(!timer(text, began, began).isDue(began + 200 * 8766h));
    }

    // A rotation that waits for a wrong clock to be reached again, or comes twice for a small correction; an overflow.
    void survivesWrongClocks()
    {
        const Time now = time("2026-03-11T00:00:05Z"), late = time("2250-01-01T00:00Z");
        for (const Time wrong : {now + 10s, now + 24h * 400, Time::max()}) {
            QVERIFY(isDueFrom(timer("1 hours", wrong, now), now + 1h));
            QVERIFY(isDueFrom(timer(":00", wrong, now), now + 1h - 5s));
            auto interval = timer("1 hours", wrong, wrong), timeOfDay = timer("01:00", wrong, wrong);
            QVERIFY(!interval.isDue(now) && isDueFrom(interval, now + 1h));
            QVERIFY(wrong == now + 10s || (!timeOfDay.isDue(now) && isDueFrom(timeOfDay, now + 1h - 5s)));
        }
        auto midnight = timer("00:00", now, now);
        QVERIFY(!midnight.isDue(now - 10s) && !midnight.isDue(now) && midnight.isDue(now + 24h));
        QVERIFY(timer("9999 months", now, now).isDue(now + 200 * 8766h));
        QVERIFY(!timer("9999 months", late, late).isDue(late + 1s));
        for (const char* text : {"00:00", "1 days"})
            QVERIFY(!timer(text, Time::min(), Time::min()).isDue(Time::min()) &&
                    timer(text, Time::min(), now).isDue(now));
    }

    // A start that is not found again, or lies where the log's own files are counted; a half-written or foreign content
    // that is taken for a time; a FIFO that holds the worker up; a leftover that stops it for good; the time of the
    // last record taken for the start although the file system knows better, or nothing at all.
    void keepsTheStart()
    {
        const TestPlace place;
        Zyr::CallWatch watch;
        const Zyr::IntervalStart start(watch);
        const std::string log = place.path(u"app.log"_s).toStdString();
        const QString kept = u".app.log.since"_s;
        const QDir::Filters all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

        QVERIFY(!start.read(log));
        place.write(kept + u".new"_s, "left behind");
        QDir::setCurrent(place.path({}));
        QVERIFY(start.write(log, Time()) && start.write("app.log", time("2026-03-11T13:00:00.900Z")));
        QCOMPARE(place.read(kept), "1773234000\n");
        QVERIFY(start.read(log) == time("2026-03-11T13:00:00Z"));
        QCOMPARE(QDir().entryList(all), QStringList(kept));
        QDir::setCurrent(u"/"_s);

        for (const QByteArray damaged :
             {"", "\n", "1773234000", "177323400\n0", "1773234000\n\n", " 1\n", "-1\n", "1a\n", "9000000000\n",
              "99999999999\n", "9223372036854775807\n", "9223372036854775808\n"}) {
            place.write(kept, damaged);
            QVERIFY2(!start.read(log), damaged.constData());
        }
        start.remove(log);
        QVERIFY(QDir(place.path({})).isEmpty(all));
        QCOMPARE(::mkfifo(place.path(kept).toLocal8Bit().constData(), 0600), 0);
        QVERIFY(!start.read(log));
        QVERIFY(!start.write(log + "/missing/app.log", Time()));
        QCOMPARE(watch.limit(), Zyr::CallWatch::Clock::time_point::max());

        QFile file(place.path(place.write(u"app.log"_s, "record\n")));
        QVERIFY(file.open(QIODevice::Append));
        QVERIFY(file.setFileTime(QDateTime::fromSecsSinceEpoch(1'000'000'000), QFile::FileModificationTime));
        const QFileInfo info(file);
        const QDateTime birth = info.birthTime().isValid() ? info.birthTime() : info.lastModified();
        QVERIFY(start.birthOf(log) == Time(std::chrono::seconds(birth.toSecsSinceEpoch())));
        QVERIFY(!start.birthOf("/dev/null/missing"));
    }
};

QTEST_GUILESS_MAIN(tst_RotationTimer)
#include "tst_rotationtimer.moc"
