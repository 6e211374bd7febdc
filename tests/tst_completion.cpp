// From an ended message to its record, of a logger and of a class logger: names, levels, filters, files.

#include "RecordingListener.h"
#include "SettingsProbe.h"
#include "TestPlace.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtTest/QtTest>

#include <Poco/Logger.h>
#include <Poco/Message.h>
#include <Poco/Thread.h>

#include <thread>

#include <unistd.h>

using namespace Qt::StringLiterals;

class tst_Completion : public QObject
{
    Q_OBJECT
    const TestPlace place;
    const QString settings = place.write(
        u"tst.ini"_s, settingsFile("textFilters=net|<SYS>|Line 7|%1", "flush=true\npattern=%I %s %E%F %U:%u %l %t"));
    Zyr::Logger logger{u"tst"_s, u"tst.log"_s, settings};

    static QString threadId() { return QString::number(reinterpret_cast<quintptr>(QThread::currentThreadId())); }

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationName(u"pump"_s); }

    // A level with another's priority or mark; a record without its source; a time that is not the creation's, a thread
    // that is not the end's; a NUL in the record; a file with another entry's line.
    void mapsEveryLevel()
    {
        QStringList lines = QString(u"1 net [a.cpp, Line 42]|1 net|2 net|3 net|4 net|5 net|6 net|7 net|8 net|"
                                    "1 Unknown log level 9 :net|1 Unknown log level 10 :net|5 <SYS> net|7 <TODO> net|"
                                    "1 Unknown log level 13 :net|1 Unknown log level 255 :net"_s)
                                .split(u'|');
        std::vector<Zyr::LogMessage*> messages;
        for (const int level : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 255}) {
            messages.push_back(&logger.out(uchar(level), level == 0 ? u"net"_s : u"net\0b"_s, "/src/a.cpp", 42));
            messages.back()->timestamp = 1'715'933'730'123'999;
        }
        std::thread([&] {
            lines.replaceInStrings(QRegularExpression(u"^"_s), threadId() + u" tst 1715933730123999 /src/a.cpp:42 "_s);
            for (Zyr::LogMessage* message : messages)
                message->endl();
        }).join();
        QTRY_COMPARE(place.lines(u"tst.log"_s), lines);
    }

    // A process, a thread or a source file that is not the entry's own but one of those before.
    void keepsNothingOfEarlierRecords()
    {
        const QString file = place.write(u"kept.ini"_s, settingsFile({}, "flush=true\npattern=%P %T %U %t"));
        Zyr::Logger keeper(u"keeper"_s, u"kept.log"_s, file);
        char source[] = "a.cpp";
        const auto say = [&] { keeper.out(Zyr::Info, u"x"_s, source).endl(); };
        say();
        source[0] = 'b';
        Poco::Thread thread("pump");
        thread.startFunc([&] {
            say();
            thread.setName("valve");
            say();
        });
        thread.join();
        keeper.out(Zyr::Info, QString(100'000, u'x')).endl();
        say();
        const QString pid = QString::number(getpid());
        QTRY_COMPARE(place.lines(u"kept.log"_s).size(), 5);
        QStringList lines = place.lines(u"kept.log"_s);
        QCOMPARE(lines.takeAt(3).size(), pid.size() + 3 + 100'000);
        QCOMPARE(lines, QStringList({pid + u"  a.cpp x"_s, pid + u" pump b.cpp x"_s, pid + u" valve b.cpp x"_s,
                                     pid + u"  b.cpp x"_s}));
    }

    // A level that is not the current one; repeats that are not counted because nobody made the entry.
    void tellsWhatIsEnabled()
    {
        const auto enabled = [](const Zyr::Logger& asked) {
            QList<int> levels;
            for (int level = 0; level < 14; ++level) {
                if (asked.isEnabled(uchar(level)))
                    levels.append(level);
            }
            return levels;
        };
        const QString file = place.write(u"level.ini"_s, settingsFile("level=notice"));
        Zyr::Logger asked(u"asked"_s, u"level.log"_s, file);
        const QList<int> upToNotice = {0, 1, 2, 3, 4, 5, 9, 10, 11, 13};
        QCOMPARE(enabled(asked), upToNotice);
        Poco::Logger::get("asked").setLevel(Poco::Message::PRIO_FATAL);
        asked.out(Zyr::Error, u"dropped, and the level is seen"_s).endl();
        QCOMPARE(enabled(asked), QList<int>({0, 1, 9, 10, 13}));
        place.load(asked, "[Logger]\nlevel=none");
        QCOMPARE(enabled(asked), QList<int>());
        place.load(asked, "[Logger]\nlevel=none\ncheckRepeatedMsg=true");
        QCOMPARE(enabled(asked).size(), 14);
        asked.out(Zyr::Trace, u"counted"_s).endl();
        QCOMPARE(enabled(asked).size(), 14);
        place.load(asked, "[Logger]\nlevel=notice");
        QCOMPARE(enabled(asked), upToNotice);
        Zyr::Logger sameName(u"asked"_s, u"level.log"_s, file);
        QCOMPARE(enabled(sameName), QList<int>()); // POCO has no logger for it
    }

    // A conversion of the application's that is skipped, or repeated, where its entry or its value is not needed.
    void convertsOwnTypesOnce()
    {
        struct Counted
        {
        };
        static int conversions = 0;
        QMetaType::registerConverter<Counted, QString>([](const Counted&) {
            ++conversions;
            return u"%1"_s;
        });
        const QVariant counted = QVariant::fromValue(Counted());
        Poco::Logger& poco = Poco::Logger::get("tst");
        const auto restore = qScopeGuard([&, level = poco.getLevel()] { poco.setLevel(level); });
        poco.setLevel(Poco::Message::PRIO_INFORMATION);
        for (const QString& text : {u"net"_s, u"net %1"_s, u"net %1%1 %x"_s}) {
            for (const int level : {Zyr::Info, Zyr::Trace}) { // of which the second is dropped
                conversions = 0;
                logger.out(uchar(level), text).arg(counted).endl();
                logger.out(uchar(level), text).topic(u"x"_s, counted).endl();
                QCOMPARE(conversions, 2);
            }
        }
    }

    // An entry that is lost because the application's own conversion or listener ran out of memory; one that is counted
    // as lost although it is in the file or below the level.
    void tellsOfWantOfMemory()
    {
        struct Huge
        {
        };
        QMetaType::registerConverter<Huge, QString>([](const Huge&) -> QString { throw std::bad_alloc(); });
        class Greedy : public Zyr::Logger::LogListener
        {
            void handleMessage(QString, QString, QString) override { throw std::bad_alloc(); }
        } greedy;
        Zyr::Logger tells(u"tells"_s, u"huge.log"_s, place.write(u"huge.ini"_s, settingsFile()));
        tells.registerLogListener(&greedy);
        const QVariant huge = QVariant::fromValue(Huge());
        QStringList lines;
        for (const char* const repeats : {"", "checkRepeatedMsg=true"}) {
            place.load(tells, settingsFile(QByteArray("level=debug\n") + repeats));
            tells.out(Zyr::Trace, u"%1"_s).arg(huge).endl();
            tells.out(Zyr::Info, u"%1"_s).arg(huge).endl();
            lines += u"warn 1 record lost: Cannot allocate memory"_s;
            QTRY_COMPARE(place.lines(u"huge.log"_s), lines);
            tells.out(Zyr::Debug, u"%x"_s).topic(u"x"_s, huge).endl();
            lines += lines.last();
            QTRY_COMPARE(place.lines(u"huge.log"_s), lines);
            tells.out(Zyr::Debug, u"kept"_s).endl();
            lines += u"debug kept"_s;
            QTRY_COMPARE(place.lines(u"huge.log"_s), lines);
        }
        tells.unregisterLogListener(&greedy);
    }

    // Filters that fold case, see placeholders or marks, need every entry to match, or let the including ones win; an
    // empty one that is not found; a text or an entry that UTF-8 cannot hold, or what is behind a NUL, not searched.
    void filtersTheRenderedText()
    {
        const RecordingListener listener(logger);
        logger.addExcludeFilter(u"noise"_s);
        logger.addExcludeFilter(QChar(0xD83D)); // the first half of many characters
        for (const QString& text : {u"Network up"_s, u"subnet up"_s, u"net noise"_s, u"up"_s, u"Noise net"_s,
                                    u"net \U0001F600"_s, u"net"_s + QChar(0xD83D), u"net\0noise"_s, u"ne\0net"_s})
            logger.out(Zyr::System, u"%1"_s).arg(text).endl();
        logger.out(Zyr::Emerg, u"boom"_s, "a.cpp", 7).endl();
        logger.addExcludeFilter({}); // for good
        logger.out(Zyr::System, u"subnet down"_s).endl();
        QCOMPARE(listener.records(),
                 QStringList({u"notice <SYS> subnet up"_s, u"notice <SYS> Noise net"_s, u"notice <SYS> ne"_s}));
    }

    // Levels 9 and 10 for a class logger's last two, calls in disorder, a source file or line of the library's own; a
    // second logger of the class that takes over the first one's, also when it ends.
    void eachCallOfAClassHasItsLevel()
    {
        using Valve = Zyr::ClassLogger;
        place.write(u"pump_Valve_Log.ini"_s, settingsFile({}, "flush=true"));
        Valve valve(u"Valve"_s);
        Valve(u"Valve"_s).cLogError(u"from the second"_s).endl();
        for (const auto call : {&Valve::cLogEmerg, &Valve::cLogAlert, &Valve::cLogCritical, &Valve::cLogError,
                                &Valve::cLogWarning, &Valve::cLogNotice, &Valve::cLogInfo, &Valve::cLogDebug,
                                &Valve::cLogTrace, &Valve::cLogSystem, &Valve::cLogTODO})
            (valve.*call)(u"x"_s).endl();
        const QString lines = u"fatal x [, Line 0]|fatal x|panic x|error x|warn x|notice x|info x|debug x|trace x|"
                              "notice <SYS> x|debug <TODO> x"_s;
        QTRY_COMPARE(place.lines(u"pump_Valve.log"_s), lines.split(u'|'));
    }

    // A class's files that lie wherever its name leads or are another's, or are renamed without a word or need; the
    // application's own name, or the POCO logger's, that is altered as well.
    void keepsClassFilesInTheirDirectories()
    {
        const std::tuple<QString, QString, QString> rows[] = {
            {u"pump"_s, u"../../../x"_s, u"logs/pump_.._.._.._x"_s},
            {u"pump"_s, u"a/../../x"_s, u"logs/pump_a_.._.._x"_s},
            {u"pump"_s, u"/etc/x"_s, u"logs/pump__etc_x"_s},
            {u"../up"_s, u"b/../../x"_s, u"up_b_.._.._x"_s},
            {u"pump"_s, u"../../x"_s, u"logs/pump_.._.._x"_s},
            {u"../up"_s, u"y"_s, u"up_y"_s},
            {u"pump"_s, u"../x"_s, u"logs/pump_../x"_s},
            {u"pump"_s, u"a/..b"_s, u"logs/pump_a/..b"_s},
        };
        constexpr int renamed = 5;
        for (const char* const variable : {"QUADEL_CURRENT_LOG_LOCATION", "QUADEL_CURRENT_CONFIG_LOCATION"})
            qputenv(variable, QFile::encodeName(place.path(u"logs"_s)));
        std::vector<std::unique_ptr<Zyr::ClassLogger>> classes;
        const QByteArray errors = errorsOf([&] {
            for (const auto& [application, name, file] : rows) {
                QCoreApplication::setApplicationName(application);
                classes.push_back(std::make_unique<Zyr::ClassLogger>(name));
            }
        });
        QCoreApplication::setApplicationName(u"pump"_s);
        QCOMPARE(errors.count('\n'), renamed);
        for (std::size_t i = 0; i < classes.size(); ++i) {
            const auto& [application, name, file] = rows[i];
            QCOMPARE(classes[i]->getLogger().getLogFilePath(), place.path(file + u".log"_s));
            QVERIFY(QFile::exists(place.path(file + u"_Log.ini"_s)));
            QVERIFY(i >= renamed || errors.contains("class logger '" + name.toUtf8() + "': its name leads away"));
            QVERIFY(Poco::Logger::has(name.toStdString()));
        }
        std::vector<std::jthread> ends; // in parallel: each takes a second
        for (auto& each : classes)
            ends.emplace_back([&each] { each.reset(); });
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

QTEST_GUILESS_MAIN(tst_Completion)
#include "tst_completion.moc"
