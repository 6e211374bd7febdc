// Files that may not be read or written, which root never notices: the program starts over as an ordinary user.

#include "RecordingListener.h"
#include "SettingsProbe.h"

#include <QtTest/QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestOrdinaryUser : public QObject
{
    Q_OBJECT
    const TestPlace place;

    void setMode(const QString& name, mode_t mode) const { QCOMPARE(chmod(qPrintable(place.path(name)), mode), 0); }

private Q_SLOTS:
    void settingsThatMayNotBeTouched_data()
    {
        QTest::addColumn<mode_t>("fileMode");
        QTest::addColumn<mode_t>("directoryMode");
        QTest::addColumn<QStringList>("records");
        QTest::newRow("unreadable file") << mode_t(0) << mode_t(0755) << QStringList{u"error x"_s, u"info x"_s};
        QTest::newRow("read-only file") << mode_t(0444) << mode_t(0755) << QStringList(u"error x"_s);
        QTest::newRow("read-only directory") << mode_t(0644) << mode_t(0555) << QStringList(u"error x"_s);
    }

    // Defaults written over the file, or none taken in memory; a file that is not looked at again.
    void settingsThatMayNotBeTouched()
    {
        QFETCH(const mode_t, fileMode);
        QFETCH(const mode_t, directoryMode);
        QDir().mkpath(place.path(u"conf"_s));
        const QString name = place.write(u"conf/x.ini"_s, "[Logger]\nlevel=error\n");
        setMode(name, fileMode);
        setMode(u"conf"_s, directoryMode);
        {
            Zyr::Logger logger(u"User"_s, u"user.log"_s, name);
            const RecordingListener listener(logger);
            logger.out(Zyr::Error, u"x"_s).endl();
            logger.out(Zyr::Info, u"x"_s).endl();
            QTEST(listener.records(), "records");
            setMode(name, 0644);
            QCOMPARE(place.read(name), "[Logger]\nlevel=error\n");
            place.write(name, "[Logger]\nlevel=trace\n");
            setMode(name, fileMode | 0444);
            QTRY_VERIFY((logger.out(Zyr::Trace, u"x"_s).endl(), listener.records().contains(u"trace x"_s)));
        }
        QCOMPARE(place.read(name), "[Logger]\nlevel=trace\n");
        setMode(u"conf"_s, 0755);
        QFile::remove(place.path(name));
    }

    // The wrong reason told; a logger that stays silent, or that has to be told, after its directory could not be
    // written for a while.
    void unwritableLogDirectory()
    {
        QDir().mkpath(place.path(u"locked"_s));
        setMode(u"locked"_s, 0555);
        const QString settings = place.write(u"locked_Log.ini"_s, settingsFile({}, "flush=true"));
        std::optional<Zyr::Logger> made;
        const QByteArray errors = errorsOf([&] { made.emplace(u"Locked"_s, u"locked/locked.log"_s, settings); });
        QVERIFY2(errors.contains("Permission denied"), errors.constData());
        Zyr::Logger& logger = *made;
        logger.out(Zyr::Info, u"dropped"_s).endl();
        setMode(u"locked"_s, 0755);
        QTRY_VERIFY((logger.out(Zyr::Info, u"written"_s).endl(), place.lines(u"locked/locked.log"_s).size() > 0));
        QCOMPARE(place.lines(u"locked/locked.log"_s).first(), u"info written"_s);
    }
};

int main(int count, char* words[])
{
    if (geteuid() == 0) {
        constexpr const char* startOver =
            "exec setpriv --reuid=65534 --regid=65534 --clear-groups $ZYR_TEST_EMULATOR \"$0\"";
        return execlp("sh", "sh", "-c", startOver, words[0], nullptr);
    }
    TestOrdinaryUser test;
    const QCoreApplication application(count, words);
    return QTest::qExec(&test, count, words);
}

#include "tst_ordinaryuser.moc"
