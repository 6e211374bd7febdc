// Settings that change while the program runs and logs.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtCore/QDir>
#include <QtCore/QScopeGuard>
#include <QtCore/QSettings>
#include <QtTest/QTest>

#include <atomic>
#include <cstdlib>
#include <future>

using namespace Qt::StringLiterals;

class TestReload : public QObject
{
    Q_OBJECT

private:
    const TestPlace place;
    Zyr::ClassLogger valve{u"Valve"_s};

    void change(const QString& name, const QString& path)
    {
        QFETCH(const QString, script);
        place.write(u"new"_s, settingsFile({}, "path=" + path.toUtf8()));
        const QString command = u"cd %1; f=%2; "_s.arg(place.path({}), name) + script;
        QCOMPARE(std::system(qPrintable(command)), 0);
    }

private Q_SLOTS:
    void takesEveryChangeOnce_data()
    {
        QTest::addColumn<QString>("script");
        QTest::newRow("written") << u"cat new > $f"_s;
        QTest::newRow("renamed") << u"mv new $f"_s;
        QTest::newRow("deleted") << u"rm $f; sleep 0.2; cat new > $f"_s;
        QTest::newRow("linked") << u"mv new $f.1; ln -s $f.1 link; mv -T link $f"_s;
        QTest::newRow("relinked") << u"mv new $f.2; ln -s $f.2 link; mv -T link $f"_s;
    }

    // A change that is missed, announced twice (the write-back of missing keys is none), or told by a class logger.
    void takesEveryChangeOnce()
    {
        const RecordingListener main(Zyr::Logger::instance());
        const RecordingListener other(valve.getLogger());
        const QString path = place.path(QString::fromUtf8(QTest::currentDataTag()));
        change(u"tst_reload_Valve_Log.ini"_s, path);
        QTRY_COMPARE(valve.getLogger().getLogFilePath(), path);
        change(u"tst_reload_Log.ini"_s, path);
        QTRY_COMPARE(main.texts(), QStringList(u"<SYS> Logger configuration changed"_s));
        QCOMPARE(Zyr::Logger::instance().getLogFilePath(), path);
        QCOMPARE(other.texts(), QStringList());
    }

    // A record that is lost, doubled or torn while the chain is reconfigured, a deadlock, a load that waits for a
    // pause.
    void losesNothingUnderLoad()
    {
        const auto settings = [&](int i) {
            return settingsFile({}, "pattern=%t\npath=" + place.path(u"%1.load"_s.arg(i)).toUtf8());
        };
        place.write(u"load_Log.ini"_s, settings(0));
        auto logger = std::make_unique<Zyr::Logger>(u"Load"_s, u"unused"_s, u"load_Log.ini"_s);
        std::atomic<bool> enough = false;
        const auto flood = [&](QChar thread) {
            QStringList sent;
            while (!enough) {
                sent.append(u"%1 %2"_s.arg(thread).arg(sent.size()));
                logger->out(Zyr::Info, sent.last()).endl();
            }
            return sent;
        };
        auto first = std::async(std::launch::async, flood, u'a');
        auto second = std::async(std::launch::async, flood, u'b');
        const auto stop = qScopeGuard([&] { enough = true; });
        for (int i = 1; i <= 100; ++i) {
            const RecordingListener listener(*logger);
            if (i % 20 == 0) {
                place.replace(u"load_Log.ini"_s, settings(i));
                QTRY_COMPARE_WITH_TIMEOUT(logger->getLogFilePath(), place.path(u"%1.load"_s.arg(i)), 1000);
            } else {
                place.write(u"own%1.ini"_s.arg(i), settings(i));
                QSettings own(place.path(u"own%1.ini"_s.arg(i)), QSettings::IniFormat);
                logger->createLoggerBySettings(own);
            }
            logger->setLogFilePath(place.path(u"%1.moved.load"_s.arg(i)));
            logger->setLogFileProperty(u"flush"_s, u"true"_s);
            logger->addExcludeFilter(u"matches nothing"_s);
        }
        enough = true;
        QStringList sent = first.get() + second.get();
        logger.reset();
        QStringList written;
        for (const QString& file : QDir(place.path({})).entryList({u"*.load"_s}))
            written += place.lines(file);
        sent.sort();
        written.sort();
        QVERIFY(written == sent);
    }
};

QTEST_GUILESS_MAIN(TestReload)
#include "tst_reload.moc"
