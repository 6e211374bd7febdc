// Repeat suppression. A record is named by priority and text, as "6A"; its step is its line, file and time.

#include "TestPlace.h"

#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

using namespace Qt::StringLiterals;

class tst_Repeats : public QObject, public Zyr::Logger::LogListener
{
    Q_OBJECT
    const TestPlace place;
    Zyr::Logger logger{u"tst"_s, u"tst.log"_s, u"tst.ini"_s};
    QStringList written;

    void handleMessage(QString, QString, QString) override {}
    void handleFormatedMessage(QString line) override { written += line; }
    void configure(quint32 amount, quint32 maximum)
    {
        const QByteArray keys = "checkRepeatedMsg=1\namountRepeatedMsg=" + QByteArray::number(amount) +
                                "\nmaxRepeatedMsgCounter=" + QByteArray::number(maximum);
        place.load(logger, settingsFile(keys, "pattern=%l%t %u:%U:%E"));
    }
    void log(const QString& name, int step)
    {
        const QByteArray file = QByteArray::number(step); // gone before the record is
        auto& message = logger.out(uchar(name[0].digitValue()), name.mid(1), file.constData(), step);
        message.timestamp = Poco::Timestamp(step * Poco::Timestamp::resolution());
        message.endl();
    }

private Q_SLOTS:
    // A way out of being remembered that goes wrong: pushed out, at the cap, or flushed; priorities that are mixed up.
    void followsAWorkedSequence()
    {
        int step = 0;
        configure(2, 3);
        logger.registerLogListener(this);
        for (const QString& name : u"6A 6A 6B 6A 6D 6A 6A 6A 6A 6A 4B 4B 4%1 4%1"_s.split(u' '))
            log(name, ++step);
        logger.flushLog();
        logger.flushLog();
        const QString lines = u"6A 1:1:1|6B 3:3:3|6A... (repeated 2 times). 1:1:1|6D 5:5:5|6A 6:6:6|"
                              "6A... (repeated 3 times). 10:10:10|6A 10:10:10|4B 11:11:11|4%1 13:13:13|"
                              "4B... (repeated 1 times). 11:11:11|41... (repeated %2 times). 13:13:13"_s;
        QCOMPARE(std::exchange(written, {}), lines.split(u'|'));
    }

    // Any shortcut that leads elsewhere than the rules in their plainest form, with limits that change in between.
    void followsTheRules()
    {
        QStringList remembered, expected;
        QHash<QString, int> repeats, steps;
        const auto line = [](const QString& name, int step) { return name + u" %1:%1:%1"_s.arg(step); };
        const auto summarise = [&](const QString& name, int step) {
            expected += line(u"%1... (repeated %2 times)."_s.arg(name).arg(repeats[name]), step);
        };
        const auto leave = [&](const QString& name) { repeats[name] > 0 ? summarise(name, steps[name]) : void(); };

        QRandomGenerator random(1);
        const auto oneOf = [&](const auto& list) { return list[random.bounded(list.size())]; };
        const QStringList names = u"6A 6AB 6%1 6%2 6%3 4A 4% 4"_s.split(u' ');
        const QList<quint32> limits{0, 1, 2, 3, 4, 100'000};
        quint32 amount = 2, maximum = 3;
        for (int step = 1; step < 5000; ++step) {
            if (random.bounded(50) == 0)
                configure(amount = oneOf(limits), maximum = oneOf(limits));
            const QString name = oneOf(names);
            log(name, step);
            if (amount == 0) {
                expected += line(name, step);
            } else if (!remembered.contains(name)) {
                remembered += name;
                steps[name] = step;
                repeats[name] = 0;
                if (quint32(remembered.size()) > amount)
                    leave(remembered.takeFirst());
                expected += line(name, step);
            } else if (quint32(repeats[name]) < maximum) {
                ++repeats[name];
            } else {
                remembered.removeOne(name);
                summarise(name, step);
                expected += line(name, step);
            }
            if (random.bounded(40) == 0) {
                logger.flushLog();
                for (const QString& pending : std::exchange(remembered, {}))
                    leave(pending);
            }
            QCOMPARE(std::exchange(written, {}), std::exchange(expected, {}));
        }
    }
};

QTEST_GUILESS_MAIN(tst_Repeats)
#include "tst_repeats.moc"
