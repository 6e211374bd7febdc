// Keys that a settings file lacks: how they are added, without ever overwriting another process's save.

#include "SettingsProbe.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

class tst_ConfigWriteBack : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void checksSettingsValue_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("missing") << "" << QVariant(5);
        QTest::newRow("empty is not missing") << "k=" << QVariant(QString());
        QTest::newRow("unquoted comma") << "k=fatal,panic,,x" << QVariant(u"fatal,panic,,x"_s);
    }

    // A default in place of a stored value, one that is not set, a stored value written anew, a flag that is taken
    // back.
    void checksSettingsValue()
    {
        QFETCH(const QString, line);
        const TestPlace place;
        place.write(probeFile, "[G]\n" + line.toUtf8() + '\n');
        QSettings settings(place.path(probeFile), QSettings::IniFormat);
        settings.beginGroup(u"G"_s);
        bool changed = false;
        QTEST(Zyr::Misc::checkSettingsValue(settings, u"k"_s, changed, 5), "expected");
        QCOMPARE(changed, line.isEmpty());
        changed = true;
        QTEST(Zyr::Misc::checkSettingsValue(settings, u"k"_s, changed, 6), "expected");
        settings.sync();
        QCOMPARE(place.read(probeFile), "[G]\n" + (line.isEmpty() ? "k=5" : line.toUtf8()) + '\n');
        QVERIFY(changed);
    }

    void addsMissingKeys_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("missing file") << u""_s << u"[S]\nadded=1\n"_s;
        QTest::newRow("comments and order")
            << u"; top\n[T]\nb=1\na=2\n\n# don't \"\n[S]\nz=1\n; end\n\n[U]\nc=3\n"_s
            << u"; top\n[T]\nb=1\na=2\n\n# don't \"\n[S]\nz=1\nadded=1\n; end\n\n[U]\nc=3\n"_s;
        QTest::newRow("carriage returns") << u"[S]\r\nv=1\r\n[T]\r\n"_s << u"[S]\r\nv=1\r\nadded=1\r\n[T]\r\n"_s;
        QTest::newRow("no last line end") << u"[S]\nv=1"_s << u"[S]\nv=1\nadded=1\n"_s;
        QTest::newRow("new section") << u"x=1"_s << u"x=1\n\n[S]\nadded=1\n"_s;
        QTest::newRow("value over two lines") << u"[S]\nv=\"1\n; 2\"\n[T]"_s << u"[S]\nv=\"1\n; 2\"\nadded=1\n[T]"_s;
        QTest::newRow("value without key") << u"[S]\n=1\n"_s << u"[S]\n=1\nadded=1\n"_s;
        QTest::newRow("open quotation") << u"[S]\nv=\"1\n[T]\nx=1\n"_s << u"[S]\nv=\"1\n[T]\nx=1\n"_s;
    }

    // Comments or order lost, a key inside another's value, the own write taken for a change, files left behind.
    void addsMissingKeys()
    {
        QFETCH(const QString, text);
        const TestPlace place;
        if (!text.isEmpty())
            place.write(probeFile, text.toUtf8());
        SettingsProbe probe(addKey);
        QVERIFY(probe.startConfigFileWatcher());
        QTEST(QString::fromUtf8(place.read(probeFile)), "expected");
        change(place, "test \"$(ls -A)\" = probe.ini");
        QVERIFY(!probe.loads().contains('|'));
    }

    // A key that a listener changes or removes, but that stays in the file as it was.
    void writesChangesToo()
    {
        const TestPlace place;
        place.write(probeFile, "[S]\nv=1\nw=2\n");
        SettingsProbe probe([](SettingsProbe&, QSettings& settings, bool) {
            settings.setValue(u"S/v"_s, 3);
            settings.remove(u"S/w"_s);
        });
        QVERIFY(probe.startConfigFileWatcher());
        QCOMPARE(place.read(probeFile), "[S]\nv=3\n");
    }

    // A link replaced by a file, a mode or an owner that becomes the process's own.
    void keepsLinkModeAndOwner()
    {
        const TestPlace place;
        shell(place, "put real 1; link real probe.ini; test $(id -u) != 0 || chown 12:34 real; "
                     "chmod 642 real; stat -c '%a %u %g' real > before");
        SettingsProbe probe(addKey);
        QVERIFY(probe.startConfigFileWatcher());
        shell(place, "test -L probe.ini; grep -q added real; stat -c '%a %u %g' real | cmp - before");
    }

    void saveDuringCallbackStands_data()
    {
        QTest::addColumn<QString>("script");
        QTest::newRow("in place") << "put probe.ini 2; cp probe.ini saved";
        QTest::newRow("renamed") << "put new 2; cp new saved; mv new probe.ini";
        QTest::newRow("deleted") << "rm probe.ini";
    }

    // A save that is overwritten, or taken for loaded.
    void saveDuringCallbackStands()
    {
        QFETCH(const QString, script);
        const TestPlace place;
        shell(place, "put probe.ini 1");
        SettingsProbe probe([&](SettingsProbe& self, QSettings& settings, bool first) {
            if (first)
                shell(place, script.toUtf8());
            if (first)
                addKey(self, settings, first);
        });
        QVERIFY(probe.startConfigFileWatcher());
        change(place, ":");
        QCOMPARE(place.read(probeFile), place.read(u"saved"_s));
        QCOMPARE(probe.loads().contains('2'), place.read(probeFile).contains('2'));
    }

    // A save, by renaming or in place, that is lost between the last look at the file and its replacement.
    void savesDuringWriteBackStand()
    {
        qputenv("TMPDIR", "/dev/shm"); // a disk would take its time
        const TestPlace place;
        const QByteArray saved = "[S]\nv=2\n";
        int hits = 0;
        for (int round = 0; round < 200; ++round) {
            place.write(probeFile, "[S]\nv=1\n");
            place.write(u"mine"_s, saved);
            SettingsProbe probe(addKey);
            std::atomic<bool> ended = false;
            std::thread loader([&] { ended = probe.startConfigFileWatcher(); });
            while (!ended && QDir(place.path({})).entryList(QDir::Files | QDir::Hidden).size() < 3)
                continue; // a write-back begins with a temporary file
            hits += !ended;
            // Any moment until it ends; sleeping would take longer than that.
            for (const QDeadlineTimer moment{std::chrono::microseconds(round % 60)}; !moment.hasExpired();)
                continue;
            QFile file(place.path(probeFile));
            if (round % 2 == 0) {
                ::rename(qPrintable(place.path(u"mine"_s)), qPrintable(file.fileName()));
            } else if (file.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
                std::this_thread::sleep_for(std::chrono::microseconds(50));
                file.resize(0);
                file.write(saved);
                file.close();
            }
            loader.join();
            QVERIFY2(place.read(probeFile).startsWith(saved), qPrintable(u"lost in round %1"_s.arg(round)));
        }
        QVERIFY2(hits > 0, "no write-back has been seen");
        shell(place, "rm -f mine; test \"$(ls -A)\" = probe.ini");
    }
};

QTEST_APPLESS_MAIN(tst_ConfigWriteBack)
#include "tst_configwriteback.moc"
