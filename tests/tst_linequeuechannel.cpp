// The queue as a POCO channel: its limit of lines.

#include "TestPlace.h"

#include "chain/LineFormatter.h"
#include "chain/LineQueueChannel.h"

#include <QtTest/QtTest>

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/Message.h>

using namespace Qt::StringLiterals;

class tst_LineQueueChannel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void losesLinesBeyondTheLimit_data()
    {
        QTest::addColumn<QString>("limits"); // the last one is current when the lines come
        QTest::addColumn<int>("kept");
        QTest::newRow("one") << u"1"_s << 1;
        QTest::newRow("some") << u"7"_s << 7;
        QTest::newRow("as many as there are") << u"50"_s << 50;
        QTest::newRow("lifted") << u"7 none"_s << 50;
        QTest::newRow("without") << u"7 unlimited"_s << 50;
        QTest::newRow("zero") << u"7 0"_s << 50;
        QTest::newRow("more than fits a number") << u"7 18446744073709551615"_s << 50;
        QTest::newRow("refused") << u"7 many"_s << 7;
    }

    // A limit that the lock-free fast path ignores, that lets one line more or fewer in, or that stays when it is
    // lifted; lost lines that are not reported, or a line that waits for room.
    void losesLinesBeyondTheLimit()
    {
        QFETCH(const QString, limits);
        QFETCH(const int, kept);
        const TestPlace place;
        Poco::AutoPtr formatter(new Zyr::LineFormatter);
        formatter->setProperty("pattern", "%p %s %t");
        Poco::AutoPtr file(new Zyr::LogFileChannel);
        file->setProperty("path", place.path(u"x.log"_s).toStdString());
        file->writer().setLossFormat("Limit", formatter->patterns());
        Poco::AutoPtr queue(new Zyr::LineQueueChannel(file));
        const auto log = [&](int line) { queue->log({{}, "line " + std::to_string(line), Poco::Message::PRIO_TRACE}); };
        QStringList expected;
        {
            const Zyr::LogFileChannel::Change held(*file); // keeps all lines in the queue
            log(1);
            QTest::qSleep(20); // until the thread runs and the fast path is open
            for (const QString& limit : limits.split(u' ')) {
                try {
                    queue->setProperty("queueSize", limit.toStdString());
                    QVERIFY(limit != u"many"_s);
                } catch (const Poco::SyntaxException&) {
                    QCOMPARE(limit, u"many"_s);
                }
            }
            for (int line = 2; line <= 50; ++line)
                log(line);
            for (int line = 1; line <= kept; ++line)
                expected += u"line %1"_s.arg(line);
        }
        queue->close();
        if (kept < 50)
            expected += u"Warning Limit %1 records lost: the queue is full"_s.arg(50 - kept);
        QCOMPARE(place.lines(u"x.log"_s), expected);
    }
};

QTEST_APPLESS_MAIN(tst_LineQueueChannel)
#include "tst_linequeuechannel.moc"
