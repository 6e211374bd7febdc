// Where a settings file lies, which changes are loaded, and how the watcher starts, ends and sleeps. There is no
// application object but where a case makes one.

#include "SettingsProbe.h"

#include <QtCore/QCoreApplication>

#include <Poco/Exception.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

using namespace Qt::StringLiterals;

// Otherwise the test's watchdog thread and the application object share a context of glib's, and ThreadSanitizer does
// not see how that is locked.
[[maybe_unused]] const bool withoutGlib = qputenv("QT_NO_GLIB", "1");

class tst_ConfigFileListener : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsFile_data()
    {
        QTest::addColumn<QString>("given"); // environment variable, property, application's name, file's name
        QTest::addColumn<QString>("path");
        QTest::newRow("environment first") << u"/e,/p,pump,n"_s << u"/e/n"_s;
        QTest::newRow("then property") << u",/p/,pump,"_s << u"/p/pump_Log.ini"_s;
        QTest::newRow("then standard location") << u",,pump,"_s << u"/c/pump_Log.ini"_s;
        QTest::newRow("no application") << u",/p,,"_s << u"/c/Quadel_Log.ini"_s;
    }

    // Places in another order, an empty one that counts, a given name that is altered.
    void findsFile()
    {
        QFETCH(const QString, given);
        const QStringList parts = given.split(u',');
        const char* const variable = "QUADEL_CURRENT_CONFIG_LOCATION";
        qputenv("XDG_CONFIG_HOME", "/c");
        qputenv(variable, parts[0].toUtf8());
        int count = 0;
        std::optional<QCoreApplication> application;
        if (!parts[2].isEmpty())
            application.emplace(count, nullptr).setProperty(variable, parts[1]);
        QCoreApplication::setApplicationName(parts[2]);
        QTEST(SettingsProbe({}, parts[3]).configFilePath(), "path");
    }

    void loadsEveryChangeOnce_data()
    {
        QTest::addColumn<QString>("steps"); // lines, after each of which the watcher catches up
        QTest::newRow("renamed") << "put other new; mv other way/probe.ini";
        QTest::newRow("same size and time") << "touch -r real/text t; put real/text new; touch -r t real/text";
        QTest::newRow("link swapped") << "put real/b new; link b way/probe.ini";
        QTest::newRow("link on the way swapped") << "mkdir b; put b/probe.ini new; link b way";
        QTest::newRow("directory replaced") << "mv real gone\nmkdir real; put real/probe.ini new";
        QTest::newRow("burst") << "for v in 1 2 3 4 5 6 7 8 9 new; do put b $v; mv b way/probe.ini; done";
        QTest::newRow("slow writer") << "{ printf '[S]\\nv=n'; sleep 0.2; echo ew; } > real/text";
        QTest::newRow("same bytes, deleted and created")
            << "put b old; mv b real/text\nrm real/text\nput real/text old\nput real/text new";
    }

    // A change that is missed, loaded half or loaded twice; none that is loaded.
    void loadsEveryChangeOnce()
    {
        QFETCH(const QString, steps);
        const TestPlace place;
        shell(place, "mkdir real; put real/text old; link text real/probe.ini; link real way");
        SettingsProbe probe({}, u"way/probe.ini"_s);
        QVERIFY(probe.startConfigFileWatcher() && probe.startConfigFileWatcher()); // once is enough
        for (const QString& step : steps.split(u'\n'))
            change(place, step.toUtf8());
        QCOMPARE(probe.loads(), "first old|new");
    }

    // An exception that escapes or is not reported, keys that are written after it; a failed load that no touch
    // repeats, or an applied one that every touch repeats.
    void repeatsFailedLoad()
    {
        const TestPlace place;
        place.write(probeFile, "[S]\nv=1\n");
        std::atomic<int> load = 0;
        SettingsProbe probe([&](SettingsProbe& self, QSettings& settings, bool first) {
            addKey(self, settings, first);
            if (++load == 1)
                throw Poco::NotFoundException("level");
            if (load == 2)
                throw 2;
            if (load == 3)
                self.configFileLoadFailed();
        });
        const QByteArray errors = errorsOf([&] {
            QVERIFY(probe.startConfigFileWatcher());
            for (const bool added : {false, true, true, true}) {
                change(place, "touch probe.ini");
                QCOMPARE(place.read(probeFile).contains("added"), added);
            }
        });
        const QByteArray start = place.path(probeFile).toUtf8() + ": the settings have not been taken over: ";
        QCOMPARE(errors, start + "Not found: level\n" + start + "unknown exception\n");
        QCOMPARE(probe.loads(), "first 1|1|1|1");
    }

    // A failed load that stays so although its cause is gone, or that is repeated before; a writer that keeps the file
    // open and is waited for as long.
    void loadsWithoutFurtherChange()
    {
        const TestPlace place;
        std::atomic<int> asked = 0;
        SettingsProbe failed([&](SettingsProbe& self, QSettings&, bool first) {
            if (first)
                self.configFileLoadFailed([&] { return ++asked == 2; });
        });
        place.write(u"open.ini"_s, "[S]\nv=0\n");
        SettingsProbe open({}, u"open.ini"_s);
        QVERIFY(failed.startConfigFileWatcher() && open.startConfigFileWatcher());
        shell(place, "{ printf '[S]\\nv=1'; sleep 4; } > open.ini &");
        QTRY_COMPARE_WITH_TIMEOUT(failed.loads(), "first |", 10000); // after one second and two more
        QCOMPARE(asked.load(), 2);
        QCOMPARE(open.loads(), "first 0|1");
    }

    // A stop or an end, in the first load or a later one, that waits for itself, is forgotten, or touches what is gone.
    void endsInsideCallback()
    {
        const TestPlace place;
        std::atomic<int> loads[4] = {};
        std::unique_ptr<SettingsProbe> probes[4];
        for (size_t i = 0; i < 4; ++i) {
            probes[i] = std::make_unique<SettingsProbe>([&, i](SettingsProbe& self, QSettings&, bool first) {
                ++loads[i];
                if (first == (i < 2))
                    i % 2 == 0 ? probes[i].reset() : self.stopConfigFileWatcher();
            });
            QCOMPARE(probes[i]->startConfigFileWatcher(), i >= 2);
        }
        change(place, "put probe.ini 1");
        change(place, "put probe.ini 2");
        for (size_t i = 0; i < 4; ++i)
            QCOMPARE(loads[i].load(), i < 2 ? 1 : 2);
    }

    // A change that is missed because the event queue overflowed while the thread was busy; later changes too, where
    // the path led elsewhere since.
    void outlivesFullEventQueue()
    {
        const TestPlace place;
        shell(place, "put busy.ini 1; mkdir way b; put way/probe.ini 1; put b/probe.ini 2");
        std::atomic<bool> isBusy = false, isFull = false;
        const auto waitUntilFull = [&](SettingsProbe&, QSettings&, bool first) {
            isBusy = !first;
            for (int i = 0; !first && !isFull && i < 20'000; ++i)
                QTest::qSleep(1);
        };
        SettingsProbe busy(waitUntilFull, u"busy.ini"_s);
        SettingsProbe probe({}, u"way/probe.ini"_s);
        QVERIFY(busy.startConfigFileWatcher() && probe.startConfigFileWatcher());
        shell(place, "put busy.ini 2");
        QTRY_VERIFY(isBusy);
        QFile limit(u"/proc/sys/fs/inotify/max_queued_events"_s), file(place.path(u"busy.ini"_s));
        QVERIFY(limit.open(QIODevice::ReadOnly) && file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        // Alternating: the kernel merges equal events.
        for (int events = limit.readAll().toInt(); events >= 0; events -= 2)
            QVERIFY(file.write("\n") == 1 && ::fchmod(file.handle(), 0600) == 0);
        shell(place, "mv way gone; mv b way");
        isFull = true;
        QTRY_COMPARE(probe.loads(), "first 1|2");
        change(place, "put way/probe.ini 3");
        QCOMPARE(probe.loads(), "first 1|2|3");
    }

    // A callback that still runs when its object is gone.
    void stopWaitsForCallback()
    {
        const TestPlace place;
        std::atomic<int> passed = 0;
        SettingsProbe probe([&](SettingsProbe&, QSettings&, bool) {
            ++passed;
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            ++passed;
        });
        QVERIFY(probe.startConfigFileWatcher());
        place.write(probeFile, "[S]\nv=1\n");
        QTRY_VERIFY(passed >= 3);
        probe.stopConfigFileWatcher();
        QCOMPARE(passed.load(), 4);
    }

    // A race or a deadlock between starts, stops and loads.
    void startsAndStopsOnTwoThreads()
    {
        const TestPlace place;
        SettingsProbe shared;
        const auto restart = [&] {
            for (int round = 0; round < 50; ++round) {
                shared.startConfigFileWatcher();
                place.write(probeFile, "[S]\nv=" + QByteArray::number(round));
                shared.stopConfigFileWatcher();
            }
        };
        std::thread other(restart);
        restart();
        other.join();
    }

    // A child that waits for a thread it does not have, or that takes away what its parent watches.
    void forkedChildWatchesNothing()
    {
        const TestPlace place;
        SettingsProbe probe;
        QVERIFY(probe.startConfigFileWatcher());
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20);
            probe.stopConfigFileWatcher();
            SettingsProbe own;
            ::_exit(own.startConfigFileWatcher() || own.loads() != "first ");
        }
        int status = -1;
        QVERIFY(::waitpid(child, &status, 0) == child && status == 0);
        change(place, "put probe.ini 1");
        QCOMPARE(probe.loads(), "first |1");
    }

    // A fork that waits for a load, which has Qt's message handler called; a child that waits for Qt's lock of the file
    // that its parent reads, since it reads one with the same descriptor number.
    void forksWhileAValueIsRead()
    {
        const TestPlace place;
        place.write(probeFile, "[S]\nv=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x2x\\0)\n");
        static pid_t child;
        child = -1;
        const auto handler = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {
            if (child >= 0 || (child = ::fork()) != 0)
                return;
            ::alarm(20);
            for (int file = 3; file < 50; ++file)
                ::close(file);
            for (int file = 3; file < 50; file = ::dup(STDOUT_FILENO)) {
                SettingsProbe own;
                own.startConfigFileWatcher();
            }
            ::_exit(0);
        });
        SettingsProbe probe;
        QVERIFY(probe.startConfigFileWatcher());
        qInstallMessageHandler(handler);
        int status = -1;
        QVERIFY(::waitpid(child, &status, 0) == child && status == 0);
    }

    // A thread that wakes for every file in the directory, for good after its own one had been missing.
    void sleepsWhileOtherFilesChange()
    {
        const TestPlace place;
        SettingsProbe probe;
        QVERIFY(probe.startConfigFileWatcher());
        change(place, "put probe.ini 1");
        rusage before = {};
        rusage after = {};
        ::getrusage(RUSAGE_SELF, &before);
        shell(place, "for n in $(seq 50); do put log.$n 1; mv log.$n log; chmod 600 log; cat probe.ini; done > out");
        ::getrusage(RUSAGE_SELF, &after);
        QVERIFY(after.ru_nvcsw - before.ru_nvcsw < 50);
    }

    // Settings without effect that are not reported, or at every touch; a missing file that is reported as unreadable.
    void tellsOnceOfAnUnreadableFile()
    {
        const TestPlace place;
        place.write(probeFile, "[S]\nv=1\n");
        SettingsProbe probe;
        const QByteArray errors = errorsOf([&] {
            QVERIFY(probe.startConfigFileWatcher());
            for (const char* const step : {"head -c 70000 /dev/zero > probe.ini", "rm probe.ini; mkdir probe.ini",
                                           "rmdir probe.ini; put probe.ini 2", "rm probe.ini", "mkdir probe.ini"})
                change(place, step);
        });
        const QByteArray start =
            place.path(probeFile).toUtf8() + ": cannot be read now, so what was loaded stays in force: ";
        QCOMPARE(errors, start + "larger than 64 KiB\n" + start + "not a regular file\n");
        QCOMPARE(probe.loads(), "first 1|2");
    }

    void watchesOnceThereAreDescriptors_data()
    {
        QTest::addColumn<bool>("hasThread");
        QTest::newRow("another is watched") << true;
        QTest::newRow("the first one") << false;
    }

    // Settings that stay unwatched for good because there were no descriptors when they were to be watched.
    void watchesOnceThereAreDescriptors()
    {
        QFETCH(const bool, hasThread);
        const TestPlace place;
        place.write(probeFile, "[S]\nv=1\n");
        SettingsProbe other({}, u"other.ini"_s);
        QVERIFY(!hasThread || other.startConfigFileWatcher());
        SettingsProbe probe;
        rlimit before = {};
        ::getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none = {0, before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
        const bool watched = probe.startConfigFileWatcher();
        ::setrlimit(RLIMIT_NOFILE, &before);
        QVERIFY(!watched && other.startConfigFileWatcher());
        QTRY_COMPARE_WITH_TIMEOUT(probe.loads(), "first |1", 10000); // after a second
        change(place, "put probe.ini 2");
        QCOMPARE(probe.loads(), "first |1|2");
    }

    // No settings at all where there is no directory for them; a start that loads or reports once more.
    void unwatchableIsLoadedAllTheSame()
    {
        SettingsProbe probe({}, u"/dev/null/probe.ini"_s);
        const QByteArray errors =
            errorsOf([&] { QVERIFY(!probe.startConfigFileWatcher() && !probe.startConfigFileWatcher()); });
        QCOMPARE(errors, "/dev/null/probe.ini: cannot be watched: its directory cannot be created\n");
        QCOMPARE(probe.loads(), "first ");
    }
};

QTEST_APPLESS_MAIN(tst_ConfigFileListener)
#include "tst_configfilelistener.moc"
