// Files that may not be read or written, which root never notices: the program starts over as an ordinary user.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <QtCore/QDir>
#include <QtTest/QTest>

#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestOrdinaryUser : public QObject
{
    Q_OBJECT

private:
    const TestPlace place;

    void setMode(const QString& name, mode_t mode) const { QCOMPARE(chmod(qPrintable(place.path(name)), mode), 0); }

private Q_SLOTS:
    void initTestCase()
    {
        struct stat directory = {};
        QCOMPARE(stat("/usr", &directory), 0);
        QCOMPARE(directory.st_uid, 0U);
        QCOMPARE(directory.st_mode & 0777, 0755U);
        QVERIFY(!QFile(u"/usr/written-by-a-test"_s).open(QIODevice::WriteOnly));
    }

    void settingsThatMayNotBeTouched_data()
    {
        QTest::addColumn<mode_t>("fileMode");
        QTest::addColumn<mode_t>("directoryMode");
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("unreadable file") << mode_t(0) << mode_t(0755) << QStringList({u"error"_s, u"info"_s});
        QTest::newRow("read-only file") << mode_t(0444) << mode_t(0755) << QStringList(u"error"_s);
        QTest::newRow("read-only directory") << mode_t(0644) << mode_t(0555) << QStringList(u"error"_s);
    }

    // Defaults written over the file, or none taken in memory; a file that is not looked at again.
    void settingsThatMayNotBeTouched()
    {
        QFETCH(const mode_t, fileMode);
        QFETCH(const mode_t, directoryMode);
        const QString name = u"conf/x.ini"_s;
        QDir().mkpath(place.path(u"conf"_s));
        place.write(name, "[Logger]\nlevel=error\n");
        setMode(name, fileMode);
        setMode(u"conf"_s, directoryMode);
        {
            Zyr::Logger logger(u"User"_s, u"user.log"_s, name);
            const RecordingListener listener(logger);
            logger.out(Zyr::Error, u"error"_s).endl();
            logger.out(Zyr::Info, u"info"_s).endl();
            QTEST(listener.texts(), "texts");
            setMode(name, 0644);
            QCOMPARE(place.read(name), "[Logger]\nlevel=error\n");
            place.write(name, "[Logger]\nlevel=trace\n");
            setMode(name, fileMode | 0444);
            QTRY_VERIFY((logger.out(Zyr::Trace, u"trace"_s).endl(), listener.texts().contains(u"trace"_s)));
        }
        QCOMPARE(place.read(name), "[Logger]\nlevel=trace\n");
        setMode(u"conf"_s, 0755);
        QFile::remove(place.path(name));
    }

    // A logger that stays silent, or that has to be told, after its directory could not be written for a while.
    void unwritableLogDirectory()
    {
        QDir().mkpath(place.path(u"locked"_s));
        setMode(u"locked"_s, 0555);
        const QString path = place.path(u"locked/locked.log"_s);
        place.write(u"locked_Log.ini"_s, settingsFile({}, "flush=true\npath=" + path.toUtf8()));
        Zyr::Logger logger(u"Locked"_s, u"locked.log"_s, u"locked_Log.ini"_s);
        logger.out(Zyr::Info, u"dropped"_s).endl();
        setMode(u"locked"_s, 0755);
        QTRY_VERIFY((logger.out(Zyr::Info, u"written"_s).endl(), place.lines(u"locked/locked.log"_s).size() > 0));
        QCOMPARE(place.lines(u"locked/locked.log"_s).first(), u"info written"_s);
    }
};

int main(int count, char* words[])
{
    if (geteuid() == 0) {
        std::vector<const char*> command = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
        command.insert(command.end(), words, words + count + 1);
        return execvp(command[0], const_cast<char**>(command.data())); // returns only when there is no setpriv
    }
    TestOrdinaryUser test;
    const QCoreApplication application(count, words);
    return QTest::qExec(&test, count, words);
}

#include "tst_ordinaryuser.moc"
