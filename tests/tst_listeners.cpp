// Who hears of a record, in which order, and what a listener may do meanwhile.

#include "TestPlace.h"

#include <QtTest/QtTest>

#include <latch>
#include <thread>

using namespace Qt::StringLiterals;

static const QDateTime moment = QDateTime::fromMSecsSinceEpoch(1'715'933'730'123); // of every record
static thread_local QStringList calls;
static QMap<QString, std::function<void()>> actions; // by the call that they are taken in

struct Listener : Zyr::Logger::LogListener
{
    explicit Listener(QChar letter)
        : name(letter)
    {
    }
    void handleMessage(QString priority, QString time, QString text) override
    {
        hear(name + priority + (time == moment.toString(Qt::ISODateWithMs) ? u':' : u'?') + text);
    }
    void handleFormatedMessage(QString line) override { hear(name + u'=' + line); }
    static void hear(const QString& call)
    {
        calls += call, actions.value(call, [] {})();
    }
    const QString name;
};

class tst_Listeners : public QObject
{
    Q_OBJECT
    const TestPlace place;
    const QString settings = place.write(
        u"tst.ini"_s, settingsFile("level=notice", "pattern=%t\nflush=true\npriorityNames=\"1,2,3, w,5,6,7,8\""));
    Zyr::Logger logger{u"tst"_s, u"tst.log"_s, settings};
    Listener a{u'A'}, b{u'B'}, c{u'C'};

    void log(const QString& text)
    {
        Zyr::LogMessage& message = logger.out(Zyr::Warning, text);
        message.timestamp = moment.toMSecsSinceEpoch() * 1000 + 999;
        message.endl();
    }

private Q_SLOTS:
    void init()
    {
        for (Listener* listener : {&a, &b, &c})
            logger.unregisterLogListener(listener);
        for (Listener* listener : {&a, &b, &a})
            logger.registerLogListener(listener);
        actions.clear();
        calls.clear();
    }

    void mayDoAnythingInACall()
    {
        const std::pair<QString, std::function<void()>> cases[] = {
            // an order of its own, a listener twice, a name without its blank, a rounded time, a record below the level
            {u"A w:x,A=x,B w:x,B=x"_s, [this] { logger.out(Zyr::Info, u"below"_s).endl(); }},
            // one that has left hears it; the next one misses it; a new one misses it
            {u"A w:x,A=x"_s, [this] { logger.unregisterLogListener(&b); }},
            {u"A w:x,B w:x,B=x"_s, [this] { logger.unregisterLogListener(&a); }},
            {u"A w:x,A=x,B w:x,B=x,C w:x,C=x"_s, [this] { logger.registerLogListener(&c); }},
            // a deadlock; an exception that makes later records unheard
            {u"A w:x,A w:y,A=y,B w:y,B=y,A=x,B w:x,B=x"_s, [this] { log(u"y"_s); }},
            {u"A w:x"_s, [] { throw 1; }},
            {u"A w:x,A=x,B w:x,B=x"_s, [] {}},
        };
        for (const auto& [expected, action] : cases) {
            init();
            actions[u"A w:x"_s] = action;
            log(u"x"_s);
            QCOMPARE(calls.join(u','), expected);
        }
        QTRY_COMPARE(place.lines(u"tst.log"_s).join(u','), u"x,x,x,x,x,y,x,x"_s);
    }

    // A listener that is deleted while another thread is inside it.
    void waitsForACallOnAnotherThread()
    {
        std::latch inside(1);
        std::atomic<bool> left = false;
        actions[u"A w:x"_s] = [&] { inside.count_down(), QTest::qSleep(100), left = true; };
        std::thread other([this] { log(u"x"_s); });
        inside.wait();
        logger.unregisterLogListener(&a);
        const bool waited = left;
        other.join();
        QVERIFY(waited);
    }

    // Two threads that wait for each other for ever, each inside the listener that the other one removes.
    void doesNotWaitInsideACall()
    {
        std::latch bothInside(2);
        actions[u"A w:1"_s] = [&] { bothInside.arrive_and_wait(), logger.unregisterLogListener(&b); };
        actions[u"B w:2"_s] = [&] { bothInside.arrive_and_wait(), logger.unregisterLogListener(&a); };
        std::thread other([this] { log(u"1"_s); });
        log(u"2"_s);
        other.join();
        calls.clear();
        log(u"3"_s);
        QCOMPARE(calls, QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_Listeners)
#include "tst_listeners.moc"
