// Where the log file goes, asked and changed while the program runs.

#include "TestPlace.h"

#include <ZyrLogger/Logger.h>

#include <QtTest/QTest>

#include <Poco/Exception.h>

using namespace Qt::StringLiterals;

class TestLocation : public QObject
{
    Q_OBJECT

private:
    const TestPlace place;
    Zyr::Logger logger{u"Location"_s, u"location.log"_s, u"location_Log.ini"_s};

private Q_SLOTS:
    // A path that is made absolute or cleaned, a directory that is not made, records that go on to the old file, a path
    // that outlives the next load.
    void movesTheFileUntilTheNextLoad()
    {
        const QString moved = place.path(u"new/../new/Ölpumpe.log"_s);
        logger.setLogFilePath(moved);
        QCOMPARE(logger.getLogFilePath(), moved);
        logger.out(Zyr::Info, u"moved"_s).endl();
        place.write(u"location_Log.ini"_s, settingsFile({}, "flush=true"));
        QTRY_COMPARE(logger.getLogFilePath(), place.path(u"location.log"_s));
        QCOMPARE(place.lines(u"new/Ölpumpe.log"_s).size(), 1);
    }

    // An error that is swallowed, a file that stays open after it (the record would go to the removed one), a logger
    // that is dead from then on, a property that makes directories.
    void refusedPropertyClosesTheFile()
    {
        QVERIFY(QFile::remove(place.path(u"location.log"_s)));
        QVERIFY_EXCEPTION_THROWN(logger.setLogFileProperty(u"colour"_s, u"red"_s), Poco::PropertyNotSupportedException);
        logger.out(Zyr::Info, u"after"_s).endl();
        QTRY_COMPARE(place.lines(u"location.log"_s), QStringList(u"info after"_s));
        QVERIFY_EXCEPTION_THROWN(logger.setLogFileProperty(u"path"_s, place.path(u"missing/x.log"_s)), Poco::Exception);
        QVERIFY(!QFile::exists(place.path(u"missing"_s)));
    }
};

QTEST_GUILESS_MAIN(TestLocation)
#include "tst_location.moc"
