// File systems, and kernels, that lack calls: see support/badstore.cpp, which makes them fail.

#include "SettingsProbe.h"

#include "chain/LogFileChannel.h"
#include "store/LogPlace.h"
#include "system/TrustedPath.h"

#include <QtTest/QtTest>

#include <Poco/AutoPtr.h>
#include <Poco/Message.h>

#include <cerrno>

using namespace Qt::StringLiterals;

/// Makes those calls fail as long as it lives.
class Lacking
{
public:
    explicit Lacking(const QByteArray& calls) { order(calls); }
    ~Lacking() { order({}); }
    Lacking(const Lacking&) = delete;
    Lacking& operator=(const Lacking&) = delete;

    static void order(const QByteArray& calls)
    {
        QFile file(qEnvironmentVariable("BADSTORE_ORDERS"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(calls) == calls.size());
    }
};

/// The last link of a logger's chain. Its end waits for the file.
class LogFile
{
public:
    using Properties = std::vector<std::pair<std::string, std::string>>;

    LogFile(const QString& path, const Properties& properties)
    {
        file->setProperty("path", path.toStdString());
        for (const auto& [name, value] : properties)
            file->setProperty(name, value);
    }
    ~LogFile() { file->writer().finish(); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void log(const QString& line) { file->log({{}, line.toStdString(), Poco::Message::PRIO_TRACE}); }

private:
    Poco::AutoPtr<Zyr::LogFileChannel> file{new Zyr::LogFileChannel};
};

/// An order for badstore, as the name of a row.
static QByteArray lacks(const QByteArray& calls, int error, int times = 0)
{
    return calls + " 0 " + QByteArray::number(error) + ' ' + QByteArray::number(times);
}

class tst_FileSystems : public QObject
{
    Q_OBJECT
    const bool isInMemory = qputenv("TMPDIR", "/dev/shm"); // a disk would take its time
    const TestPlace place;
    const QTemporaryDir elsewhere;
    int rows = 0;

    /// A new directory's name, with a slash.
    QString newDirectory()
    {
        const QString name = u"row%1/"_s.arg(++rows);
        return QDir(place.path({})).mkdir(name) ? name : QString();
    }

    QString files(const QString& directory) const
    {
        return QDir(place.path(directory)).entryList(QDir::Files | QDir::Hidden, QDir::Name).join(u' ');
    }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("BADSTORE_ORDERS", QFile::encodeName(elsewhere.filePath(u"orders"_s)));
        qputenv("BADSTORE_DIRECTORY", QFile::encodeName(place.path({})));
        Lacking::order({});
    }

    void rotates_data()
    {
        QTest::addColumn<bool>("grows");
        for (const char* const calls : {"exchange", "noreplace", "exchange,noreplace"}) {
            for (const int error : {EINVAL, ENOSYS})
                QTest::newRow(lacks(calls, error)) << false;
        }
        for (const int error : {ENOLCK, EOPNOTSUPP, ENOSYS})
            QTest::newRow(lacks("flock", error)) << false;
        for (const int error : {ENOLCK, EINVAL})
            QTest::newRow(lacks("ofdlock", error)) << false;
        QTest::newRow(lacks("fsync", EINVAL)) << false;
        QTest::newRow(lacks("readdir", EINVAL)) << false;
        QTest::newRow(lacks("exchange,noreplace,linkat,flock,ofdlock,fsync,readdir,statx", EINVAL)) << false;
        QTest::newRow(lacks("exchange", EIO)) << true;
        QTest::newRow(lacks("noreplace,rename", EIO)) << true;
        QTest::newRow(lacks("exchange,noreplace,rename", EINVAL)) << true;
    }

    // A log that grows although it could rotate, or that cannot and this is not reported; records lost, doubled or out
    // of order; archives that are not compressed, overwritten, or not purged; files left behind.
    void rotates()
    {
        QFETCH(const bool, grows);
        const QString directory = newDirectory();
        const QByteArray errors = errorsOf([&] {
            const Lacking order(QTest::currentDataTag());
            LogFile log(place.path(directory + u"x.log"_s),
                        {{"rotation", "1 K"}, {"compress", "true"}, {"flush", "true"}, {"purgeCount", "3"}});
            for (int i = 0; i < 200; ++i)
                log.log(QString::number(i) + u' ' + QString(100, u'x'));
        });
        QCOMPARE(files(directory), grows ? u"x.log"_s : u"x.log x.log.0.gz x.log.1.gz x.log.2.gz"_s);
        QCOMPARE(errors.count('\n'), grows ? 1 : 0);
        QCOMPARE(errors.count("grows, since no new one can be begun"), grows ? 1 : 0);
        shell(place,
              "cd " + directory.toUtf8() +
                  "; for file in x.log.2.gz x.log.1.gz x.log.0.gz x.log; do test ! -e $file || zcat -f $file; done"
                  " > all");
        const QStringList found = place.lines(directory + u"all"_s);
        QVERIFY(grows ? found.size() == 200 : found.size() > 10 && found.size() < 100);
        for (int i = 0; i < found.size(); ++i)
            QVERIFY2(found[i].startsWith(u"%1 "_s.arg(200 - found.size() + i)), qPrintable(found[i]));
    }

    void renamesToFreeNames_data()
    {
        QTest::addColumn<int>("error");
        for (const int error : {0, EINVAL, ENOSYS})
            QTest::newRow(lacks("noreplace", error)) << error;
    }

    // Another process's archive, made a moment ago, that is overwritten.
    void renamesToFreeNames()
    {
        const QString directory = newDirectory();
        for (const char* const name : {"one", "two"})
            place.write(directory + QString::fromLatin1(name), name);
        Zyr::CallWatch watch;
        Zyr::TrustedPath path;
        QVERIFY(!path.find(QFile::encodeName(place.path(directory + u"log"_s)).constData()));
        const Lacking order(QTest::currentDataTag());
        const auto log = Zyr::LogPlace::of(path, watch);
        QVERIFY(log->renameToFree("one", "two", watch) == std::errc::file_exists);
        QCOMPARE(place.read(directory + u"two"_s), "two");
        QVERIFY(!log->renameToFree("one", "three", watch));
        QCOMPARE(files(directory), u"three two"_s);
        QVERIFY(log->renameToFree("one", "four", watch) == std::errc::no_such_file_or_directory);
    }

    void appendsWithoutLocks_data()
    {
        QTest::addColumn<int>("error");
        for (const int error : {ENOLCK, EINVAL, ENOSYS})
            QTest::newRow(lacks("ofdlock", error)) << error;
    }

    // A second writer that waits for ever for the shared lock; a line torn by the next one.
    void appendsWithoutLocks()
    {
        const QString log = newDirectory() + u"x.log"_s;
        place.write(log, "half");
        const QByteArray errors = errorsOf([&] {
            const Lacking order(QTest::currentDataTag());
            LogFile first(place.path(log), {}), second(place.path(log), {});
            QStringList lines(u"half"_s);
            for (LogFile* const writer : {&first, &second}) {
                lines += QString::number(lines.size());
                writer->log(lines.last());
                QTRY_COMPARE(place.lines(log), lines);
            }
        });
        QCOMPARE(errors.count('\n'), 1);
        QCOMPARE(errors.count("another logger writes it"), 1);
    }

    void knowsWhenALogBegan_data()
    {
        QTest::addColumn<int>("age"); // of the last write, in seconds
        QTest::addColumn<bool>("rotates");
        QTest::newRow(lacks("birth", EINVAL)) << 2 * 3600 << true;
        QTest::newRow(lacks("birth", ENOSYS)) << 600 << false;
        QTest::newRow(lacks("statx", ENOSYS)) << 2 * 3600 << false;
    }

    // A log without a known start that never rotates, or does so at every start. Without a birth time it counts as
    // begun at its last write; without any time, now.
    void knowsWhenALogBegan()
    {
        QFETCH(const int, age);
        QFETCH(const bool, rotates);
        const QString directory = newDirectory();
        place.write(directory + u"x.log"_s, "old\n");
        shell(place, "touch -d '" + QByteArray::number(age) + " seconds ago' " + directory.toUtf8() + "x.log");
        {
            const Lacking order(QTest::currentDataTag());
            LogFile(place.path(directory + u"x.log"_s), {{"rotation", "1 hours"}}).log(u"new"_s);
        }
        QCOMPARE(place.lines(directory + u"x.log"_s),
                 rotates ? QStringList(u"new"_s) : QStringList({u"old"_s, u"new"_s}));
        QCOMPARE(files(directory), rotates ? u".x.log.since x.log x.log.0"_s : u".x.log.since x.log"_s);
    }

    void addsMissingKeys_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        const QByteArray none, old = "[S]\nv=1\n", added = "[S]\nadded=1\n", both = "[S]\nv=1\nadded=1\n";
        QTest::newRow(lacks("noreplace", EINVAL)) << none << added;
        QTest::newRow(lacks("noreplace", ENOSYS)) << none << added;
        QTest::newRow(lacks("noreplace,linkat", EINVAL)) << none << none;
        QTest::newRow(lacks("exchange", EINVAL)) << old << old;
        QTest::newRow(lacks("lease", EINVAL)) << old << both;
        QTest::newRow(lacks("fgetxattr", ENOTSUP)) << old << both;
        QTest::newRow(lacks("fgetxattr", EIO)) << old << old;
        QTest::newRow(lacks("memfd_create", EINVAL, -2)) << old << both; // a kernel that does not know the new flag
    }

    // Keys that are never added although they could be, or at the risk of overwriting a save or an access list; the own
    // write taken for a change; files left behind.
    void addsMissingKeys()
    {
        QFETCH(const QByteArray, before);
        const QString directory = newDirectory();
        const QString name = directory + probeFile;
        if (!before.isEmpty())
            place.write(name, before);
        const Lacking order(QTest::currentDataTag());
        SettingsProbe probe(addKey, name);
        QVERIFY(probe.startConfigFileWatcher());
        QTEST(place.read(name), "after");
        QCOMPARE(files(directory), place.read(name).isEmpty() ? QString() : probeFile);
        QTest::qWait(300); // longer than a change takes to be noticed
        QCOMPARE(probe.loads(), before.isEmpty() ? "first " : "first 1");
    }

    void outlivesMissingMemoryFile_data()
    {
        QTest::addColumn<int>("error");
        QTest::addColumn<bool>("atFirst");
        QTest::newRow(lacks("memfd_create", ENOSYS)) << ENOSYS << true;
        QTest::newRow(lacks("memfd_create", EMFILE)) << EMFILE << false;
    }

    // Settings that are lost, or not retried, because the system refuses the file that they are parsed in; a file
    // overwritten by defaults; a reason that is not reported, or at each attempt.
    void outlivesMissingMemoryFile()
    {
        QFETCH(const int, error);
        QFETCH(const bool, atFirst);
        const QString name = newDirectory() + probeFile;
        place.write(name, "[S]\nv=1\n");
        SettingsProbe probe(addKey, name);
        const QByteArray loaded = atFirst ? "first " : "first 1", value = atFirst ? "1" : "2";
        const QByteArray text = "[S]\nv=" + value + '\n';
        const QByteArray errors = errorsOf([&] {
            if (!atFirst)
                QVERIFY(probe.startConfigFileWatcher());
            const Lacking order(QTest::currentDataTag());
            if (atFirst)
                QVERIFY(probe.startConfigFileWatcher());
            else
                place.write(name, text);
            QTest::qWait(1'500); // until it has been tried again
            QCOMPARE(probe.loads(), loaded);
            QCOMPARE(place.read(name), text);
        });
        QCOMPARE(errors, place.path(name).toUtf8() + ": cannot be read now" +
                             (atFirst ? ", so defaults are used" : "") +
                             ": the system gives no memory file: " + std::strerror(error) + '\n');
        QTRY_COMPARE(place.read(name), text + "added=1\n");
        QCOMPARE(probe.loads(), loaded + '|' + value);
    }
};

QTEST_GUILESS_MAIN(tst_FileSystems)
#include "tst_filesystems.moc"
