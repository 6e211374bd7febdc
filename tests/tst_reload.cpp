// Settings that change while the program runs and logs.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtTest/QtTest>

#include <future>

using namespace Qt::StringLiterals;

class tst_Reload : public QObject
{
    Q_OBJECT
    const TestPlace place;

    QByteArray settings(const QString& file) const
    {
        return settingsFile({}, "pattern=%t\npath=" + place.path(file).toUtf8());
    }

private Q_SLOTS:
    // A change that is missed, announced twice (the write-back of missing keys is none), or announced by a class
    // logger.
    void announcesEachChangeOfTheMainSettings()
    {
        Zyr::ClassLogger valve(u"Valve"_s);
        const RecordingListener main(Zyr::Logger::instance()), other(valve.getLogger());
        QStringList announced;
        for (const QString& file : {u"1"_s, u"2"_s}) { // an announcement too many comes before the next one
            announced += u"notice <SYS> Logger configuration changed"_s;
            place.write(u"tst_reload_Log.ini"_s, settings(file));
            QTRY_COMPARE(main.records(), announced);
            QCOMPARE(Zyr::Logger::instance().getLogFilePath(), place.path(file));
            QTRY_VERIFY(place.read(u"tst_reload_Log.ini"_s).contains("purgeAge"));
            place.write(u"tst_reload_Valve_Log.ini"_s, settings(file));
            QTRY_COMPARE(valve.getLogger().getLogFilePath(), place.path(file));
        }
        QCOMPARE(main.records(), announced);
        QCOMPARE(other.records(), QStringList());
    }

    // A record that is lost, doubled or torn while the chain is reconfigured, a deadlock, a load that waits for a
    // pause.
    void losesNothingUnderLoad()
    {
        const QString watched = place.write(u"load_Log.ini"_s, settings(u"0.load"_s));
        auto logger = std::make_unique<Zyr::Logger>(u"Load"_s, u"unused"_s, watched);
        std::atomic<bool> enough = false;
        const auto flood = [&](QChar thread) {
            QStringList sent;
            while (!enough) {
                sent.append(u"%1 %2"_s.arg(thread).arg(sent.size()));
                logger->out(Zyr::Info, sent.last()).endl();
                if (qEnvironmentVariableIsSet("ZYR_RELOADS"))
                    QThread::usleep(100); // what was sent is kept in memory
            }
            return sent;
        };
        auto first = std::async(std::launch::async, flood, u'a');
        auto second = std::async(std::launch::async, flood, u'b');
        const auto stop = qScopeGuard([&] { enough = true; });
        const int loads = std::max(100, qEnvironmentVariableIntValue("ZYR_RELOADS"));
        for (int i = 1; i <= loads; ++i) {
            const RecordingListener listener(*logger);
            const QString file = u"%1.load"_s.arg(i % 200);
            i % 20 == 0 ? place.replace(watched, settings(file)) : void(place.load(*logger, settings(file)));
            QTRY_COMPARE_WITH_TIMEOUT(logger->getLogFilePath(), place.path(file), 1000);
            logger->setLogFilePath(place.path(u"moved."_s + file));
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

QTEST_GUILESS_MAIN(tst_Reload)
#include "tst_reload.moc"
