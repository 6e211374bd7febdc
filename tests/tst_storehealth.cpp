// What follows from a store that fails, by a clock of the test's own; and what the ledger of lost records says.

#include "writer/LossLedger.h"
#include "writer/StoreHealth.h"

#include <QtTest/QtTest>

#include <cerrno>
#include <cstring>
#include <string>

using namespace std::chrono_literals;
using Zyr::StoreHealth;

static const std::error_code diskFull = std::make_error_code(std::errc::no_space_on_device);

class tst_StoreHealth : public QObject
{
    Q_OBJECT

private:
    StoreHealth::Clock::time_point now{1h};
    StoreHealth health;

private Q_SLOTS:
    void init() { health = {}; }

    /// A disk that is tried without a pause, or too late after it has room again; a pause that a success leaves behind;
    /// a reason that is lost.
    void triesAgainEverMoreRarely()
    {
        for (const auto pause : {2ms, 4ms, 8ms, 16ms, 32ms, 64ms, 128ms, 256ms, 512ms, 1000ms, 1000ms}) {
            health.failed(diskFull, now);
            QCOMPARE((health.retryTime() - now) / 1ms, pause / 1ms);
            QCOMPARE(std::string(health.reason()), std::strerror(ENOSPC));
            now = health.retryTime();
        }
        health.failed(diskFull, now);
        health.retryNow(); // as somebody has changed something
        QVERIFY(health.isFailing() && health.retryTime() <= now);
        health.failed(diskFull, now);
        QCOMPARE((health.retryTime() - now) / 1ms, 2);
        health.failed(diskFull, now);
        health.succeeded();
        QVERIFY(!health.isFailing());
        health.failed(diskFull, now);
        QCOMPARE((health.retryTime() - now) / 1ms, 2);
    }

    /// A line on standard error for each try, for each of many short failures, or none for the second long one.
    void reportsEachLongFailureOnce()
    {
        const auto reports = [&](auto time) {
            const auto end = now + time;
            int count = 0;
            for (; now < end; now += 100ms) {
                health.failed(diskFull, now);
                count += health.shouldReport(now);
            }
            return count;
        };
        QCOMPARE(reports(60s), 1);
        health.succeeded();
        QCOMPARE(reports(1s), 1);
        for (int i = 0; i < 8; ++i) { // disk full and not, again and again
            health.succeeded();
            QCOMPARE(reports(1s), 0);
        }
        health.succeeded();
        QCOMPARE(reports(5s), 1); // the quiet time ends within it
    }

    /// Callers that wait two seconds each although the disk has been full for an hour, or that wait no time at all
    /// because the queue was full once before.
    void letsCallersWaitOnce()
    {
        const auto wait = [&] { return (health.waitLimit(now) - now) / 1ms; };
        QCOMPARE(wait(), 2000);
        now += 1500ms;
        QCOMPARE(wait(), 500);
        health.failed(diskFull, now); // from here on it is a failure that they wait for
        QCOMPARE(wait(), 2000);
        now += 1h;
        health.failed(diskFull, now);
        QVERIFY(wait() < 0);
        health.succeeded();
        QCOMPARE(wait(), 2000);
    }

    /// Lost records that no line tells of, a line that tells of too many or of none, or that comes before lines that
    /// were queued before the loss.
    void tellsOfEachLossOnce()
    {
        Zyr::LossLedger loss;
        loss.schedule(10);
        QVERIFY2(!loss.isDue(10), "due without a loss");
        loss.lose("first");
        loss.lose(std::string(1000, 'x'));
        loss.schedule(10);
        loss.schedule(20); // it has its place
        QVERIFY(!loss.isDue(9) && loss.isDue(10));
        loss.postpone(); // the store has failed
        QVERIFY(!loss.isDue(10));
        loss.schedule(20);
        QVERIFY(!loss.isDue(10) && loss.isDue(20));
        QCOMPARE(loss.text(), "2 records lost: " + std::string(Zyr::LossLedger::maxReason, 'x'));
        loss.lose("while the line is being written");
        loss.recorded(2);
        QVERIFY(!loss.isDue(1000));
        QCOMPARE(loss.text(), "1 record lost: while the line is being written");
        loss.schedule(30);
        QCOMPARE(loss.giveUp(), 1U);
        QVERIFY(loss.isEmpty());
        loss.lose("later");
        QVERIFY2(!loss.isDue(30), "due by what was given up");
        loss.giveUp(); // while a line that tells of it is being written
        loss.recorded(1);
        QVERIFY(loss.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_StoreHealth)
#include "tst_storehealth.moc"
