// What a settings file looks like after its listener has added keys to it, and who else's save it never goes over.
#include "SettingsProbe.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

using Clock = std::chrono::steady_clock;

/// Keeps the processor, since sleeping takes longer than what is to be hit.
void spin(std::chrono::microseconds time)
{
    for (const auto end = Clock::now() + time; Clock::now() < end;)
        ;
}

/// Waits until a write-back has begun to write, which shows by its temporary file, or the load has `ended`.
bool seesTemporaryFile(const QByteArray& directory, const std::atomic<bool>& ended)
{
    while (!ended) {
        DIR* const entries = ::opendir(directory.constData());
        bool seen = false;
        while (const dirent* entry = ::readdir(entries))
            seen = seen || (entry->d_type == DT_REG && entry->d_name[0] == '.');
        ::closedir(entries);
        if (seen)
            return true;
    }
    return false;
}

} // namespace

class TestConfigWriteBack : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void addsMissingKeys_data();
    void addsMissingKeys();
    void changesAndRemovesKeys();
    void sameValueOfOtherTypeIsNoChange();
    void openQuotationIsLeftAlone();
    void keepsLinkModeAndOwner();
    void fileWithoutWriteBitsIsLeftAlone();
    void saveDuringCallbackStands_data();
    void saveDuringCallbackStands();
    void savesDuringWriteBackStand_data();
    void savesDuringWriteBackStand();
};

void TestConfigWriteBack::addsMissingKeys_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char* title, const QByteArray& text, const QByteArray& expected) {
        QTest::newRow(title) << text << expected;
    };
    row("missing file", "", "[S]\nadded=1\n");
    row("comments and order", "; top\n[T]\nb=1\na=2\n\n# don't \"\n[S]\nz=1\n; end\n\n[U]\nc=3\n",
        "; top\n[T]\nb=1\na=2\n\n# don't \"\n[S]\nz=1\nadded=1\n; end\n\n[U]\nc=3\n");
    row("carriage returns", "[S]\r\nv=1\r\n\r\n[T]\r\nx=1\r\n", "[S]\r\nv=1\r\nadded=1\r\n\r\n[T]\r\nx=1\r\n");
    row("no last line end", "[S]\nv=1", "[S]\nv=1\nadded=1\n");
    row("new section", "x=1", "x=1\n\n[S]\nadded=1\n");
    row("value over two lines", "[S]\nv=\"1\n; 2\"\n[T]\n", "[S]\nv=\"1\n; 2\"\nadded=1\n[T]\n");
    row("section twice", "[S]\na=1\n[T]\nb=1\n[S]\nc=1\n", "[S]\na=1\n[T]\nb=1\n[S]\nc=1\nadded=1\n");
    row("byte order mark", "\xef\xbb\xbf[S]\nv=1\n", "\xef\xbb\xbf[S]\nv=1\nadded=1\n");
    row("nothing missing", "[S]\nadded=1", "[S]\nadded=1");
}

void TestConfigWriteBack::addsMissingKeys()
{
    QFETCH(QByteArray, text);
    const TestPlace place;
    if (!text.isEmpty())
        place.write(probeFile, text);
    SettingsProbe probe([](SettingsProbe& self, QSettings& settings, bool first) {
        addKey(self, settings, first);
        settings.sync(); // by itself this must not write anything anywhere
    });
    QVERIFY(probe.startConfigFileWatcher());
    QTEST(place.read(probeFile), "expected");
    letWatcherCatchUp(place);
    QCOMPARE(probe.loads().size(), 1); // our own writing is no change
    QCOMPARE(entries(place), QStringList(probeFile));
}

void TestConfigWriteBack::changesAndRemovesKeys()
{
    const TestPlace place;
    place.write(probeFile, "[S]\nv=1\nw=1\n[T]\na=2\nb=1\n");
    SettingsProbe probe([](SettingsProbe&, QSettings& settings, bool) {
        settings.beginGroup(u"S"_s); // left open
        settings.setValue(u"v"_s, 2);
        settings.setValue(u"x"_s, u"a,b"_s);
        settings.remove(u"w"_s);
    });
    QVERIFY(probe.startConfigFileWatcher());
    QCOMPARE(place.read(probeFile), QByteArray("[S]\nv=2\nx=\"a,b\"\n\n[T]\na=2\nb=1\n"));
    QCOMPARE(entries(place), QStringList(probeFile));
}

void TestConfigWriteBack::sameValueOfOtherTypeIsNoChange()
{
    const TestPlace place;
    place.write(probeFile, "[S] ; x\nv=1\n");
    SettingsProbe probe([](SettingsProbe&, QSettings& settings, bool) { settings.setValue(u"S/v"_s, 1); });
    QVERIFY(probe.startConfigFileWatcher());
    QCOMPARE(place.read(probeFile), QByteArray("[S] ; x\nv=1\n"));
}

void TestConfigWriteBack::openQuotationIsLeftAlone()
{
    const TestPlace place;
    const QByteArray text = "[S]\nv=\"1\n[T]\nx=1\n";
    place.write(probeFile, text);
    const ErrorText errors(place);
    SettingsProbe probe(addKey);
    QVERIFY(probe.startConfigFileWatcher());
    QCOMPARE(place.read(probeFile), text);
    QVERIFY(errors.read().contains("quotation marks"));
}

void TestConfigWriteBack::keepsLinkModeAndOwner()
{
    const TestPlace place;
    shell(place, "put real 1; chmod 642 real; ln -s real probe.ini");
    const QByteArray real = QFile::encodeName(place.path(u"real"_s));
    const bool root = ::geteuid() == 0;
    QVERIFY(!root || ::chown(real.constData(), 12, 34) == 0);
    SettingsProbe probe(addKey);
    QVERIFY(probe.startConfigFileWatcher());
    QVERIFY(place.read(u"real"_s).contains("added"));
    QVERIFY(QFileInfo(place.path(probeFile)).isSymLink());
    struct stat status = {};
    QVERIFY(::stat(real.constData(), &status) == 0);
    QCOMPARE(status.st_mode & 07777, 0642u);
    QVERIFY(!root || (status.st_uid == 12 && status.st_gid == 34));
}

void TestConfigWriteBack::fileWithoutWriteBitsIsLeftAlone()
{
    const TestPlace place;
    shell(place, "put probe.ini 1; chmod 444 probe.ini"); // counts for root too
    SettingsProbe probe(addKey);
    QVERIFY(probe.startConfigFileWatcher());
    QCOMPARE(place.read(probeFile), QByteArray("[S]\nv=1\n"));
    shell(place, "put new 2; mv new probe.ini");
    QTRY_COMPARE(probe.loads().last(), u"2"_s);
}

void TestConfigWriteBack::saveDuringCallbackStands_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::newRow("in place") << QByteArray("put probe.ini 2");
    QTest::newRow("rename") << QByteArray("put new 2; mv new probe.ini");
    QTest::newRow("deleted") << QByteArray("rm probe.ini");
    QTest::newRow("mode only") << QByteArray("chmod 444 probe.ini");
}

void TestConfigWriteBack::saveDuringCallbackStands()
{
    QFETCH(QByteArray, script);
    const TestPlace place;
    shell(place, "put probe.ini 1");
    QByteArray saved;
    SettingsProbe probe([&](SettingsProbe& self, QSettings& settings, bool first) {
        if (first) {
            shell(place, script);
            saved = place.read(probeFile);
            addKey(self, settings, first);
        }
    });
    QVERIFY(probe.startConfigFileWatcher());
    QCOMPARE(place.read(probeFile), saved);
    if (saved.contains('2'))
        QTRY_COMPARE(probe.loads().last(), u"2"_s);
    QCOMPARE(entries(place), QStringList(saved.isEmpty() ? QStringList() : QStringList(probeFile)));
}

void TestConfigWriteBack::savesDuringWriteBackStand_data()
{
    QTest::addColumn<int>("way");
    QTest::newRow("rename") << 0;
    QTest::newRow("in place") << 1;
    QTest::newRow("in place, opened before") << 2;
}

void TestConfigWriteBack::savesDuringWriteBackStand()
{
    QFETCH(int, way);
    qputenv("TMPDIR", QFileInfo(u"/dev/shm"_s).isWritable() ? "/dev/shm" : ""); // a disk would take its time
    const TestPlace place;
    const QByteArray path = QFile::encodeName(place.path(probeFile));
    const QByteArray mine = QFile::encodeName(place.path(u"mine"_s));
    const QByteArray saved = "[S]\nv=2\n";
    int hits = 0;
    for (int round = 0; round < 150; ++round) {
        place.write(probeFile, "[S]\nv=1\n");
        place.write(u"mine"_s, saved);
        SettingsProbe probe(addKey);
        std::atomic<bool> ended = false;
        std::thread loader([&] {
            probe.startConfigFileWatcher();
            ended = true;
        });
        hits += seesTemporaryFile(QFile::encodeName(place.path({})), ended);
        spin(std::chrono::microseconds(round % 60)); // any moment until it ends
        if (way == 0) {
            ::rename(mine.constData(), path.constData());
        } else {
            const int file = ::open(path.constData(), O_WRONLY);
            if (way == 2)
                spin(std::chrono::microseconds(100));
            ::ftruncate(file, 0);
            QCOMPARE(::write(file, saved.constData(), size_t(saved.size())), saved.size());
            ::close(file);
        }
        loader.join();
        probe.stopConfigFileWatcher();
        QVERIFY2(place.read(probeFile).startsWith(saved), qPrintable(u"lost in round %1"_s.arg(round)));
    }
    QVERIFY2(hits > 0, "no write-back has been seen");
    QFile::remove(place.path(u"mine"_s));
    QCOMPARE(entries(place), QStringList(probeFile));
}

QTEST_GUILESS_MAIN(TestConfigWriteBack)
#include "tst_configwriteback.moc"
