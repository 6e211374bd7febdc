// Where a settings file lies, which changes are loaded, and when the watcher starts, ends and sleeps. There is no
// application object but where a case makes one.
#include "SettingsProbe.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtTest/QTest>

#include <Poco/Exception.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// Otherwise the test's watchdog thread and the application object share a context of glib's, and ThreadSanitizer does
/// not see how that is locked.
[[maybe_unused]] const bool withoutGlib = qputenv("QT_NO_GLIB", "1");

/// The value of `key` in the status of the watcher's thread; empty without such a thread.
QByteArray watcherStatus(const QByteArray& key)
{
    const QStringList tasks = QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& task : tasks) {
        QFile status(u"/proc/self/task/"_s + task + u"/status"_s);
        const QByteArray text = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
        if (text.startsWith("Name:\tZyrSettings\n"))
            return text.mid(text.indexOf('\n' + key + ":\t") + key.size() + 3).split('\n').value(0);
    }
    return {};
}

} // namespace

class TestConfigFileListener : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsFile_data();
    void findsFile();
    void loadsChangeOnce_data();
    void loadsChangeOnce();
    void burstGivesOneLoad();
    void sameBytesGiveNoLoad();
    void waitsForWriter();
    void failedLoadIsRepeatedWhenTouched_data();
    void failedLoadIsRepeatedWhenTouched();
    void mendedLoadIsRepeated();
    void endsInsideCallback_data();
    void endsInsideCallback();
    void goesOnWhenRestartedInsideCallback();
    void stopWaitsForCallback();
    void callbacksMayStopEachOther();
    void startsAndStopsFromManyThreads();
    void forkedChildWatchesNothing();
    void sleepsWhileOtherFilesChange();
    void permissionsOfOrdinaryUser();
    void unwatchableIsLoadedAllTheSame();
    void livesUntilStaticDestruction();
};

void TestConfigFileListener::findsFile_data()
{
    QTest::addColumn<QByteArray>("environment");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("application");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    QTest::newRow("environment first") << QByteArray("/e") << u"/p"_s << u"pump"_s << u"n"_s << u"/e/n"_s;
    QTest::newRow("then property") << QByteArray() << u"/p/"_s << u"pump"_s << u""_s << u"/p/pump_Log.ini"_s;
    QTest::newRow("empty is unset") << QByteArray("") << u""_s << u"pump"_s << u""_s << u"/c/pump_Log.ini"_s;
    QTest::newRow("no application") << QByteArray() << u"/p"_s << u""_s << u""_s << u"/c/Quadel_Log.ini"_s;
    QTest::newRow("relative") << QByteArray("e") << u""_s << u""_s << u"n.x"_s << QDir::currentPath() + u"/e/n.x"_s;
}

void TestConfigFileListener::findsFile()
{
    QFETCH(QByteArray, environment);
    QFETCH(QString, property);
    QFETCH(QString, application);
    QFETCH(QString, name);
    const char* const variable = "QUADEL_CURRENT_CONFIG_LOCATION";
    qputenv("XDG_CONFIG_HOME", "/c");
    qunsetenv(variable);
    if (!environment.isNull())
        qputenv(variable, environment);
    int count = 1;
    char program[] = "test";
    char* arguments[] = {program, nullptr};
    std::unique_ptr<QCoreApplication> object;
    if (!application.isEmpty()) {
        object = std::make_unique<QCoreApplication>(count, arguments);
        object->setProperty(variable, property);
    }
    QCoreApplication::setApplicationName(application);

    class Finder : public Zyr::ConfigFileListener
    {
    public:
        using ConfigFileListener::ConfigFileListener;
        bool onConfigFileChanged(QSettings&, bool) override { return false; }
    };
    QTEST(Finder(u"_Log"_s, name).configFilePath(), "expected");
    qunsetenv(variable);
}

void TestConfigFileListener::loadsChangeOnce_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("change"); ///< steps after each of which the watcher may catch up
    QTest::addColumn<QString>("name");
    const auto row = [](const char* title, const char* before, const char* change, const QString& name = probeFile) {
        QTest::newRow(title) << QByteArray(before) << QByteArray(change) << name;
    };
    const char* const old = "put probe.ini old";
    const QString below = u"way/probe.ini"_s;
    row("in place", old, "put probe.ini new");
    row("rename", old, "put other new; mv other probe.ini");
    row("same size and time", old, "touch -r probe.ini time; put probe.ini new; touch -r time probe.ini");
    row("deleted and created", old, "rm probe.ini;;put probe.ini new");
    row("deleted and moved there", old, "rm probe.ini;;put other new; mv other probe.ini");
    row("link swapped", "put a old; put b new; link a probe.ini", "link b probe.ini");
    row("link on the way", "mkdir a b; put a/probe.ini old; put b/probe.ini new; link a way", "link b way", below);
    row("link to nothing", "link there probe.ini", "put there new");
    row("link in a circle", "link probe.ini probe.ini", "put other new; mv other probe.ini");
    row("directory replaced", "mkdir way; put way/probe.ini old", "mv way gone;;mkdir way; put way/probe.ini new",
        below);
    row("directory removed while in use", "mkdir -p way/in; put way/in/probe.ini old",
        "(cd way/in; exec sleep 5 > /dev/null 2>&1) & rm way/in/probe.ini;;rmdir way/in; mkdir way/in;;"
        "put way/in/probe.ini new",
        u"way/in/probe.ini"_s);
}

void TestConfigFileListener::loadsChangeOnce()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, change);
    QFETCH(QString, name);
    const TestPlace place;
    shell(place, before);
    SettingsProbe probe({}, name);
    QVERIFY(probe.startConfigFileWatcher());
    QVERIFY(probe.startConfigFileWatcher()); // does nothing
    QCOMPARE(probe.loads().size(), 1);
    for (const QByteArray& step : change.replace(";;", "\f").split('\f')) {
        QCOMPARE(probe.loads().size(), 1);
        shell(place, step);
        letWatcherCatchUp(place);
    }
    QCOMPARE(probe.loads().mid(1), QStringList(u"new"_s));
}

void TestConfigFileListener::burstGivesOneLoad()
{
    const TestPlace place;
    SettingsProbe probe;
    QVERIFY(probe.startConfigFileWatcher());
    for (int value = 0; value < 30; ++value) {
        place.replace(probeFile, "[S]\nv=" + QByteArray::number(value));
        std::this_thread::sleep_for(5ms);
    }
    letWatcherCatchUp(place);
    QCOMPARE(probe.loads(), QStringList({u"first "_s, u"29"_s}));
}

void TestConfigFileListener::sameBytesGiveNoLoad()
{
    const TestPlace place;
    place.write(probeFile, "[S]\nv=1\n");
    SettingsProbe probe;
    QVERIFY(probe.startConfigFileWatcher());
    for (const char* const script : {"put probe.ini 1", "put other 1; mv other probe.ini", "rm probe.ini",
                                     "mkdir probe.ini", "rmdir probe.ini; put probe.ini 1"}) {
        shell(place, script);
        letWatcherCatchUp(place);
    }
    QCOMPARE(probe.loads(), QStringList(u"first 1"_s));
}

void TestConfigFileListener::waitsForWriter()
{
    const TestPlace place;
    place.write(probeFile, "[S]\nv=old");
    SettingsProbe probe;
    QVERIFY(probe.startConfigFileWatcher());
    QFile writer(place.path(probeFile));
    QElapsedTimer sinceOpened;
    sinceOpened.start();
    QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    writer.write("[S]\nv=ha");
    letWatcherCatchUp(place);
    const QStringList meanwhile = probe.loads();
    if (sinceOpened.elapsed() > 1900)
        QSKIP("the machine is too busy to tell");
    QCOMPARE(meanwhile, QStringList(u"first old"_s));
    writer.write("lf\n");
    writer.close();
    QTRY_COMPARE(probe.loads(), QStringList({u"first old"_s, u"half"_s}));

    QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    writer.write("[S]\nv=endless");
    QTRY_COMPARE(probe.loads().last(), u"endless"_s); // but not for ever
}

void TestConfigFileListener::failedLoadIsRepeatedWhenTouched_data()
{
    QTest::addColumn<int>("way");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("POCO exception") << 0 << QByteArray("Not found: level");
    QTest::newRow("standard exception") << 1 << QByteArray("why");
    QTest::newRow("any exception") << 2 << QByteArray("unknown exception");
    QTest::newRow("told so") << 3 << QByteArray();
}

void TestConfigFileListener::failedLoadIsRepeatedWhenTouched()
{
    QFETCH(int, way);
    QFETCH(QByteArray, line);
    const TestPlace place;
    place.write(probeFile, "[S]\nv=1\n");
    const ErrorText errors(place);
    std::atomic<bool> fail = true;
    SettingsProbe probe([&](SettingsProbe& self, QSettings& settings, bool first) {
        addKey(self, settings, first);
        switch (fail ? way : -1) {
        case 0:
            throw Poco::NotFoundException("level");
        case 1:
            throw std::runtime_error("why");
        case 2:
            throw 1;
        case 3:
            self.configFileLoadFailed();
        }
    });
    QVERIFY(probe.startConfigFileWatcher());
    const QByteArray start = QFile::encodeName(probe.configFilePath()) + ": ";
    QVERIFY(line.isEmpty() ? errors.read().isEmpty()
                           : errors.read().startsWith(start) && errors.read().endsWith(line + '\n'));
    QCOMPARE(place.read(probeFile).contains("added"), line.isEmpty());
    letWatcherCatchUp(place);
    QCOMPARE(probe.loads().size(), 1); // what we write ourselves is no touch
    fail = false;
    for (int touch = 0; touch < 2; ++touch) { // after the first one it is in force
        place.write(probeFile, place.read(probeFile));
        letWatcherCatchUp(place);
        QCOMPARE(probe.loads().size(), 2);
    }
}

void TestConfigFileListener::mendedLoadIsRepeated()
{
    const TestPlace place;
    std::atomic<int> asked = 0;
    SettingsProbe probe([&](SettingsProbe& self, QSettings&, bool first) {
        if (first)
            self.configFileLoadFailed([&] { return ++asked == 2; });
    });
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(probe.startConfigFileWatcher());
    QTRY_COMPARE_WITH_TIMEOUT(probe.loads(), QStringList({u"first "_s, u""_s}), 10000);
    QVERIFY2(elapsed.elapsed() >= 3000, "asked after one second and after two more");
    QCOMPARE(asked.load(), 2);
}

void TestConfigFileListener::endsInsideCallback_data()
{
    QTest::addColumn<bool>("inFirst");
    QTest::addColumn<bool>("deleted");
    QTest::newRow("stopped in first load") << true << false;
    QTest::newRow("stopped on the thread") << false << false;
    QTest::newRow("deleted in first load") << true << true;
    QTest::newRow("deleted on the thread") << false << true;
}

void TestConfigFileListener::endsInsideCallback()
{
    QFETCH(bool, inFirst);
    QFETCH(bool, deleted);
    const TestPlace place;
    place.write(probeFile, "[S]\nv=1\n");
    std::atomic<int> loads = 0;
    std::unique_ptr<SettingsProbe> probe;
    probe = std::make_unique<SettingsProbe>([&](SettingsProbe& self, QSettings&, bool first) {
        ++loads;
        if (first == inFirst)
            deleted ? probe.reset() : self.stopConfigFileWatcher();
    });
    QCOMPARE(probe->startConfigFileWatcher(), !inFirst);
    place.write(probeFile, "[S]\nv=2\n");
    letWatcherCatchUp(place);
    place.write(probeFile, "[S]\nv=3\n");
    letWatcherCatchUp(place);
    QCOMPARE(loads.load(), inFirst ? 1 : 2);
}

void TestConfigFileListener::goesOnWhenRestartedInsideCallback()
{
    const TestPlace place;
    SettingsProbe probe([](SettingsProbe& self, QSettings& settings, bool) {
        if (settings.value(u"S/v"_s) == u"1"_s) {
            self.stopConfigFileWatcher();
            QVERIFY(self.startConfigFileWatcher());
        }
    });
    QVERIFY(probe.startConfigFileWatcher());
    for (const char* const script : {"put probe.ini 1", "put probe.ini 2"}) {
        shell(place, script);
        letWatcherCatchUp(place);
    }
    QCOMPARE(probe.loads(), QStringList({u"first "_s, u"1"_s, u"2"_s}));
}

void TestConfigFileListener::stopWaitsForCallback()
{
    const TestPlace place;
    std::atomic<bool> inside = false;
    std::promise<void> mayEnd;
    SettingsProbe probe([&](SettingsProbe&, QSettings&, bool first) {
        if (!first) {
            inside = true;
            mayEnd.get_future().wait();
            inside = false;
        }
    });
    QVERIFY(probe.startConfigFileWatcher());
    place.write(probeFile, "[S]\nv=1\n");
    QTRY_VERIFY(inside);
    auto stopped = std::async(std::launch::async, [&] {
        probe.stopConfigFileWatcher();
        return !inside;
    });
    const auto early = stopped.wait_for(50ms);
    mayEnd.set_value();
    QVERIFY(stopped.get());
    QVERIFY(early == std::future_status::timeout);
}

void TestConfigFileListener::callbacksMayStopEachOther()
{
    const TestPlace place;
    std::atomic<int> inside = 0;
    SettingsProbe* probes[2];
    const auto stopOther = [&](int other) {
        return [&, other](SettingsProbe&, QSettings&, bool) {
            ++inside;
            while (inside < 2)
                std::this_thread::yield();
            probes[other]->stopConfigFileWatcher();
        };
    };
    SettingsProbe one(stopOther(1), u"one.ini"_s);
    SettingsProbe two(stopOther(0), u"two.ini"_s);
    probes[0] = &one;
    probes[1] = &two;
    std::thread thread([&] { one.startConfigFileWatcher(); });
    two.startConfigFileWatcher();
    thread.join(); // or the test hangs
    QCOMPARE(one.loads().size() + two.loads().size(), 2);
}

void TestConfigFileListener::startsAndStopsFromManyThreads()
{
    const TestPlace place;
    SettingsProbe shared;
    std::atomic<int> running = 4;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            for (int round = 0; round < 100; ++round) {
                shared.startConfigFileWatcher();
                SettingsProbe own({}, QString::number(number));
                own.startConfigFileWatcher();
                shared.stopConfigFileWatcher();
            }
            --running;
        });
    }
    for (int value = 0; running > 0; ++value)
        place.replace(probeFile, "[S]\nv=" + QByteArray::number(value));
    for (std::thread& thread : threads)
        thread.join();
    QVERIFY(watcherStatus("Name").isEmpty());
    QVERIFY(shared.startConfigFileWatcher());
    place.write(probeFile, "[S]\nv=end");
    QTRY_COMPARE(shared.loads().last(), u"end"_s);
}

void TestConfigFileListener::forkedChildWatchesNothing()
{
    const TestPlace place;
    place.write(probeFile, "[S]\nv=1\n");
    SettingsProbe probe;
    QVERIFY(probe.startConfigFileWatcher());
    auto deletedByChild = std::make_unique<SettingsProbe>();
    QVERIFY(deletedByChild->startConfigFileWatcher());
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20);
        deletedByChild.reset();
        SettingsProbe own;
        const bool watched = own.startConfigFileWatcher() || probe.startConfigFileWatcher();
        ::_exit(watched || own.loads() != QStringList(u"first 1"_s));
    }
    int status = -1;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QCOMPARE(status, 0);
    place.write(probeFile, "[S]\nv=2\n");
    QTRY_COMPARE(probe.loads().last(), u"2"_s);
    QTRY_COMPARE(deletedByChild->loads().last(), u"2"_s);
}

void TestConfigFileListener::sleepsWhileOtherFilesChange()
{
    const TestPlace place;
    place.write(probeFile, "[S]\nv=1\n");
    SettingsProbe probe;
    QVERIFY(probe.startConfigFileWatcher());
    for (const char* const script :
         {"rm probe.ini", "put probe.ini 2", "put log 1"}) { // for which the directory counts
        shell(place, script);
        letWatcherCatchUp(place);
    }
    QCOMPARE(probe.loads().last(), u"2"_s);
    shell(place, "put fresh 1"); // the first event that nobody wants any more ends them
    std::this_thread::sleep_for(300ms);

    const auto blocked = watcherStatus("SigBlk").toULongLong(nullptr, 16);
    QCOMPARE(blocked | 1u << (SIGKILL - 1) | 1u << (SIGSTOP - 1) | 3ull << 31, ~0ull);
    const QByteArray before = watcherStatus("voluntary_ctxt_switches");
    shell(place,
          "for n in 1 2 3 4 5 6 7 8 9; do put log.$n 1; mv log.$n log; chmod 600 log; cat probe.ini; done > out");
    std::this_thread::sleep_for(300ms);
    QCOMPARE(watcherStatus("voluntary_ctxt_switches"), before);
}

void TestConfigFileListener::permissionsOfOrdinaryUser()
{
    const bool root = ::geteuid() == 0;
    QVERIFY(!root || ::seteuid(65534) == 0);
    const auto backToRoot = qScopeGuard([root] { QVERIFY(!root || ::seteuid(0) == 0); });
    const TestPlace place;
    const ErrorText errors(place);
    const QByteArray path = QFile::encodeName(place.path(probeFile));
    const QByteArray directory = QFile::encodeName(place.path({}));
    place.write(probeFile, "[S]\nv=1\n");
    QVERIFY(::chmod(path.constData(), 0) == 0);
    QVERIFY2(!QFile(place.path(probeFile)).open(QIODevice::ReadOnly), "permissions do not count here");

    SettingsProbe probe(addKey);
    QVERIFY(probe.startConfigFileWatcher());
    QCOMPARE(probe.loads(), QStringList(u"first "_s));
    QVERIFY(errors.read().startsWith(path + ": cannot be read"));
    QVERIFY(::chmod(path.constData(), 0400) == 0);
    QTRY_COMPARE(probe.loads().last(), u"1"_s);
    for (const mode_t mode : {0000u, 0600u}) {
        QVERIFY(::chmod(path.constData(), mode) == 0);
        letWatcherCatchUp(place);
    }
    QCOMPARE(probe.loads().size(), 2);
    QCOMPARE(place.read(probeFile), QByteArray("[S]\nv=1\n"));

    QVERIFY(::chmod(directory.constData(), 0500) == 0);
    QVERIFY2(::mkdir((directory + "/x").constData(), 0700) != 0, "permissions do not count here");
    SettingsProbe readOnly(addKey);
    QVERIFY(readOnly.startConfigFileWatcher());
    place.write(probeFile, "[S]\nv=2\n");
    QTRY_COMPARE(readOnly.loads().last(), u"2"_s);
    QCOMPARE(place.read(probeFile), QByteArray("[S]\nv=2\n"));
    QCOMPARE(errors.read().count('\n'), 1);
    QVERIFY(::chmod(directory.constData(), 0700) == 0);
}

void TestConfigFileListener::unwatchableIsLoadedAllTheSame()
{
    const TestPlace place;
    place.write(u"file"_s, "");
    place.write(probeFile, "[S]\nv=1\n");
    const ErrorText errors(place);
    SettingsProbe nowhere(addKey, u"file/probe.ini"_s);
    QVERIFY(!nowhere.startConfigFileWatcher());
    QCOMPARE(nowhere.loads(), QStringList(u"first "_s));
    QCOMPARE(errors.read(),
             QFile::encodeName(nowhere.configFilePath()) + ": cannot be watched: its directory cannot be created\n");

    SettingsProbe probe;
    const int next = ::dup(0);
    ::close(next);
    rlimit limit = {};
    QVERIFY(::getrlimit(RLIMIT_NOFILE, &limit) == 0);
    const rlimit tight = {rlim_t(next) + 2, limit.rlim_max}; // enough to load
    QVERIFY(::setrlimit(RLIMIT_NOFILE, &tight) == 0);
    const bool watched = probe.startConfigFileWatcher();
    QVERIFY(::setrlimit(RLIMIT_NOFILE, &limit) == 0);
    QVERIFY(!watched);
    QCOMPARE(probe.loads(), QStringList(u"first 1"_s));
    QVERIFY(errors.read().endsWith("cannot be watched: Too many open files\n"));
    QVERIFY(probe.startConfigFileWatcher()); // once there are some again
}

void TestConfigFileListener::livesUntilStaticDestruction()
{
    static const TestPlace place;
    static SettingsProbe probe; // stopped by exit(), which must neither hang nor crash
    QVERIFY(probe.startConfigFileWatcher());
    place.write(probeFile, "[S]\nv=1\n");
    QTRY_COMPARE(probe.loads().last(), u"1"_s);
}

QTEST_APPLESS_MAIN(TestConfigFileListener)
#include "tst_configfilelistener.moc"
