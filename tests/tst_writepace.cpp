// When the worker thread wakes by itself, and when those who log have to wake it.

#include "writer/WritePace.h"

#include <QtTest/QtTest>

using namespace std::chrono_literals;

namespace {

/// A worker that writes lines which come at given times, and takes no time itself.
class Worker
{
public:
    using Clock = Zyr::WritePace::Clock;

    int wokenByLines = 0;
    int writes = 0;
    Clock::duration maxDelay{0}; ///< of any line

    void line(Clock::time_point time)
    {
        wakeUntil(time);
        waiting.append(time);
        if (!asleep)
            return;
        ++wokenByLines;
        pace.woken(time);
        write(time);
    }

    /// How often it wakes by itself until then.
    int wakeUntil(Clock::time_point time)
    {
        int count = 0;
        for (; !asleep && nextWake <= time; ++count) {
            pace.gathered(std::size_t(waiting.size()));
            write(nextWake);
        }
        return count;
    }

private:
    void write(Clock::time_point now)
    {
        if (!waiting.isEmpty()) {
            ++writes;
            maxDelay = std::max(maxDelay, now - waiting.first());
            pace.wrote(std::size_t(waiting.size()), now);
        }
        waiting.clear();
        asleep = pace.gatheringTime() == 0ns;
        nextWake = now + pace.gatheringTime();
    }

    Zyr::WritePace pace;
    QList<Clock::time_point> waiting;
    Clock::time_point nextWake;
    bool asleep = true;
};

} // namespace

class tst_WritePace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Callers that wake the worker although lines come steadily, a write for each line, lines that wait long, and a
    // worker that keeps waking without lines.
    void wakesAtThePaceOfLines_data()
    {
        QTest::addColumn<int>("interval"); // µs
        QTest::addColumn<int>("maxWoken");
        QTest::addColumn<int>("maxWrites");
        QTest::newRow("flat out") << 1 << 2 << 5;
        QTest::newRow("20") << 20 << 2 << 25;
        QTest::newRow("100") << 100 << 2 << 110;
        QTest::newRow("700") << 700 << 2 << 510;
        QTest::newRow("1500") << 1500 << 2 << 510;
        QTest::newRow("3900") << 3900 << 2 << 510;
        QTest::newRow("10000") << 10000 << 1000 << 1000;
    }

    void wakesAtThePaceOfLines()
    {
        QFETCH(const int, interval);
        QFETCH(const int, maxWoken);
        QFETCH(const int, maxWrites);
        Worker worker;
        Worker::Clock::time_point now(1h);
        for (int i = 0; i < 1000; ++i)
            worker.line(now += std::chrono::microseconds(interval + (i % 3 - 1) * interval / 10));
        const int last = worker.wakeUntil(now + 1h);
        const QByteArray seen =
            QByteArray::number(worker.wokenByLines) + " woke it, " + QByteArray::number(worker.writes) + " writes";
        qInfo("%s", seen.constData());
        QVERIFY2(worker.wokenByLines <= maxWoken && worker.writes <= maxWrites, seen.constData());
        QVERIFY(worker.maxDelay <= Zyr::WritePace::longest);
        QVERIFY(last <= 2);
    }
};

QTEST_GUILESS_MAIN(tst_WritePace)
#include "tst_writepace.moc"
