// When a log file's time is up, by any zone's wall clock and by clocks that are set, and where its start is kept.

#include "TestPlace.h"

#include "settings/FileProperties.h"
#include "store/rotation/IntervalStart.h"
#include "store/rotation/RotationTimer.h"
#include "system/TrustedPath.h"

#include <QtTest/QtTest>

#include <ctime>
#include <tuple>

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
        qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
        ::tzset();
        using Case = std::tuple<bool, const char*, const char*, const char*>; // local, rotation, last written, due
        const Case rows[] = {
            // The minute counted that is already there; a second day, hour or week waited for; the wrong weekday, or
            // the wrong zone.
            {false, "00:00", "2026-03-10T23:59:59.900Z", "2026-03-11T00:00Z"},
            {false, "00:00", "2026-03-11T00:00:00Z", "2026-03-12T00:00Z"},
            {false, ":35", "2026-03-11T12:34:59Z", "2026-03-11T12:35Z"},
            {false, "wed,18:59", "2026-11-23T20:00Z", "2026-11-25T18:59Z"},
            {false, "mon,:35", "2026-11-23T23:36Z", "2026-11-30T00:35Z"},
            // A skipped hour waited for until the next day or week, or counted as an extra time by an hourly rule; an
            // hour that comes twice counted once.
            {true, "02:30", "2026-03-28T03:00+01:00", "2026-03-29T03:00+02:00"},
            {true, "02:30", "2026-03-29T03:00+02:00", "2026-03-30T02:30+02:00"},
            {true, "sun,02:30", "2026-03-23T03:00+01:00", "2026-03-29T03:00+02:00"},
            {true, ":30", "2026-03-29T01:30+01:00", "2026-03-29T03:30+02:00"},
            {true, "02:30", "2026-10-25T02:30+02:00", "2026-10-25T02:30+01:00"}};
        for (const auto& [isLocal, rotation, written, due] : rows) {
            // Set up at once, or after some days in which the process was down.
            for (const auto down : {0h, 200h}) {
                auto started = timer(rotation, time(written), time(written) + down, isLocal);
                QVERIFY2(started.isDue(time(written) + down) == (down > 0h), due);
                QVERIFY2(isDueFrom(started, time(due)) && started.isDue(time(due) + 1000h), due);
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

    // A rotation that waits for a wrong clock to be reached again, or comes twice for a small correction.
    void survivesWrongClocks()
    {
        const Time now = time("2026-03-11T00:00:05Z");
        for (const Time wrong : {now + 10s, now + 24h * 400}) {
            QVERIFY(isDueFrom(timer("1 hours", wrong, now), now + 1h));
            QVERIFY(isDueFrom(timer(":00", wrong, now), now + 1h - 5s));
            auto interval = timer("1 hours", wrong, wrong), timeOfDay = timer("01:00", wrong, wrong);
            QVERIFY(!interval.isDue(now) && isDueFrom(interval, now + 1h));
            QVERIFY(wrong == now + 10s || (!timeOfDay.isDue(now) && isDueFrom(timeOfDay, now + 1h - 5s)));
        }
        auto midnight = timer("00:00", now, now);
        QVERIFY(!midnight.isDue(now - 10s) && !midnight.isDue(now) && midnight.isDue(now + 24h));
    }

    // A start that is not found again, or lies where the log's own files are counted; half-written content that is
    // taken for a time; a leftover that stops it for good; the time of the last record taken for the start although the
    // file system knows better.
    void keepsTheStart()
    {
        const TestPlace place;
        Zyr::CallWatch watch;
        const Zyr::IntervalStart start(watch);
        Zyr::TrustedPath path;
        QVERIFY(!path.find(qPrintable(place.path(u"app.log"_s))));
        const auto found = Zyr::LogPlace::of(path, watch);
        const Zyr::LogPlace& log = *found;
        const QString kept = u".app.log.since"_s;

        QVERIFY(!start.read(log));
        place.write(kept + u".new"_s, "left behind");
        QVERIFY(start.write(log, Time()) && start.write(log, time("2026-03-11T13:00:00.900Z")));
        QVERIFY(start.read(log) == time("2026-03-11T13:00:00Z"));
        QCOMPARE(QDir(place.path({})).entryList(QDir::Files | QDir::Hidden), QStringList(kept));
        for (const QByteArray damaged : {"", "1773234000", "177323400\n0", "1a\n", "99999999999\n"}) {
            place.write(kept, damaged);
            QVERIFY2(!start.read(log), damaged.constData());
        }
        start.remove(log);
        QVERIFY(!QFile::exists(place.path(kept)));

        QFile file(place.path(place.write(u"app.log"_s, "record\n")));
        QVERIFY(file.open(QIODevice::Append));
        QVERIFY(file.setFileTime(QDateTime::fromSecsSinceEpoch(1'000'000'000), QFile::FileModificationTime));
        const QFileInfo info(file);
        const QDateTime birth = info.birthTime().isValid() ? info.birthTime() : info.lastModified();
        QVERIFY(start.birthTimeOf(log) == Time(std::chrono::seconds(birth.toSecsSinceEpoch())));
    }
};

QTEST_GUILESS_MAIN(tst_RotationTimer)
#include "tst_rotationtimer.moc"
