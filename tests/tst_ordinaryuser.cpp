// Files that may not be read or written and threads that may not be made, which root never notices: the program starts
// over as an ordinary user.

#include "RecordingListener.h"
#include "SettingsProbe.h"
#include "TestPlace.h"

#include <QtTest/QtTest>

#include <optional>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// While one lives, the process gets no more threads.
class NoThreads
{
public:
    NoThreads()
    {
        ::getrlimit(RLIMIT_NPROC, &before);
        const rlimit none = {0, before.rlim_max};
        ::setrlimit(RLIMIT_NPROC, &none);
    }
    ~NoThreads() { ::setrlimit(RLIMIT_NPROC, &before); }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    rlimit before;
};

} // namespace

class tst_OrdinaryUser : public QObject
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

    void watchesOnceThereIsAThread_data()
    {
        QTest::addColumn<QString>("again");
        for (const char* const again : {"another listener", "own load", "own path"})
            QTest::newRow(again) << QString::fromLatin1(again);
    }

    // Settings that are never watched again, without a word or with one at each attempt, because the system once gave
    // no thread for it; a change made meanwhile that is missed, a listener that is served after its end.
    void watchesOnceThereIsAThread()
    {
        QFETCH(const QString, again);
        const QString name = place.write(u"thread_Log.ini"_s, settingsFile());
        QVERIFY(SettingsProbe({}, u"former.ini"_s).startConfigFileWatcher()); // whose thread ends with it
        std::optional<Zyr::Logger> logger;
        const QByteArray errors = errorsOf([&] {
            const NoThreads none;
            QVERIFY(!SettingsProbe({}, u"gone.ini"_s).startConfigFileWatcher());
            logger.emplace(u"Thread"_s, u"thread.log"_s, name);
            logger->setLogFilePath(place.path(u"other.log"_s));
        });
        const QByteArray problem = ": cannot be watched now, which the next logger or load tries again: no thread: ";
        for (const QString& file : {u"gone.ini"_s, name})
            QCOMPARE(errors.count(place.path(file).toUtf8() + problem), 1);
        QCOMPARE(errors.count("watch"), 2);

        place.write(u"gone.ini"_s, "[S]\nv=1\n");
        place.write(name, settingsFile("level=error"));
        SettingsProbe other({}, u"other.ini"_s);
        if (again == u"another listener"_s)
            QVERIFY(other.startConfigFileWatcher());
        else if (again == u"own load"_s)
            place.load(*logger, settingsFile());
        else
            logger->setLogFilePath(place.path(u"third.log"_s));
        QTRY_VERIFY(!logger->isEnabled(Zyr::Info));
        place.write(name, settingsFile());
        QTRY_VERIFY(logger->isEnabled(Zyr::Info));
    }

    // The wrong reason reported; a logger that stays silent after its directory could not be written for a while, or
    // until its settings change.
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
    tst_OrdinaryUser test;
    const QCoreApplication application(count, words);
    return QTest::qExec(&test, count, words);
}

#include "tst_ordinaryuser.moc"
