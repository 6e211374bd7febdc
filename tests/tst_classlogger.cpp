// The logger of one class: its names, its files, its levels.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtCore/QDir>
#include <QtTest/QTest>

using namespace Qt::StringLiterals;

class TestClassLogger : public QObject
{
    Q_OBJECT

private:
    const TestPlace place;

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationName(u"pump"_s); }

    // Levels 9 and 10 for the last two, calls in disorder, a source file or line of the library's own.
    void eachCallHasItsLevel()
    {
        Zyr::ClassLogger valve(u"Valve"_s);
        using Valve = Zyr::ClassLogger;
        Zyr::LogMessage& (Valve::*const calls[])(const QString&) = {
            &Valve::cLogEmerg,   &Valve::cLogAlert,  &Valve::cLogCritical, &Valve::cLogError,
            &Valve::cLogWarning, &Valve::cLogNotice, &Valve::cLogInfo,     &Valve::cLogDebug,
            &Valve::cLogTrace,   &Valve::cLogSystem, &Valve::cLogTODO};
        const int levels[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 11, 12};
        for (size_t i = 0; i < std::size(calls); ++i) {
            Zyr::LogMessage& message = (valve.*calls[i])(u"turned"_s);
            QCOMPARE(int(message.level), levels[i]);
            QCOMPARE(message.text + message.file + QString::number(message.line), u"turned0"_s);
            message.endl();
        }
    }

    // A second logger of a name that takes over the first one's, also when it ends.
    void onlyTheFirstOfANameWrites()
    {
        place.write(u"pump_Twin_Log.ini"_s, settingsFile({}, "flush=true"));
        Zyr::ClassLogger first(u"Twin"_s);
        {
            Zyr::ClassLogger second(u"Twin"_s);
            QCOMPARE(second.getLogger().getLogFilePath(), place.path(u"pump_Twin.log"_s));
            second.cLogError(u"from the second"_s).endl();
        }
        first.cLogError(u"from the first"_s).endl();
        QTRY_COMPARE(place.lines(u"pump_Twin.log"_s), QStringList(u"error from the first"_s));
    }

    // A second slash, a relative directory that moves with the program, an ending added to a given name.
    void findsTheLogDirectory()
    {
        QDir::setCurrent(place.path({}));
        qputenv("QUADEL_CURRENT_LOG_LOCATION", "logs/");
        Zyr::Logger byVariable(u"A"_s, u"trace"_s, u"a.ini"_s);
        QCOMPARE(byVariable.getLogFilePath(), place.path(u"logs/trace"_s));
        qputenv("QUADEL_CURRENT_LOG_LOCATION", "");
        qApp->setProperty("QUADEL_CURRENT_LOG_LOCATION", place.path(u"property"_s));
        Zyr::Logger byProperty(u"B"_s, {}, u"b.ini"_s);
        QCOMPARE(byProperty.getLogFilePath(), place.path(u"property/pump.log"_s));
    }
};

QTEST_GUILESS_MAIN(TestClassLogger)
#include "tst_classlogger.moc"
