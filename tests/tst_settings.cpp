// What a logger makes of its settings: defaults, conversions, refused values; and where its file goes.

#include "RecordingListener.h"
#include "SettingsProbe.h"
#include "TestPlace.h"

#include <QtTest/QtTest>

#include <Poco/Exception.h>

#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class tst_Settings : public QObject
{
    Q_OBJECT
    const TestPlace place;
    Zyr::Logger logger{u"Settings"_s, u"settings.log"_s, u"settings_Log.ini"_s};

private Q_SLOTS:
    // A default, a type or a key that differs, a key too many, a change that is not announced, or twice.
    void setsMissingKeys()
    {
        QSettings settings(place.path(u"own.ini"_s), QSettings::IniFormat);
        QVERIFY(logger.createLoggerBySettings(settings));
        QVERIFY(!logger.createLoggerBySettings(settings));
        settings.sync();
        const QByteArray expected =
            "[Logger]\namountRepeatedMsg=1\ncheckRepeatedMsg=false\nlevel=information\nmaxRepeatedMsgCounter=10\n"
            "textFilters=\n\n[LoggerFileChannel]\n-path=" +
            place.path(u"settings.log"_s).toUtf8() +
            "\narchive=number\ncompress=true\nflush=false\npattern=\"{"
            "\\\"timestamp\\\":\\\"%Y-%m-%dT%H:%M:%S.%i%Z\\\",\\\"level\\\":\\\"%p\\\",\\\"msg\\\":\\\"%t\\\""
            "}\"\npriorityNames=\"fatal,panic,error,warn,notice,info,debug,trace\"\npurgeAge=3 months\npurgeCount=10\n"
            "rotateOnOpen=false\nrotateTimes=local\nrotation=1 M\ntimestamp=local\n";
        QCOMPARE(place.read(u"own.ini"_s), expected);
        QCOMPARE(place.read(u"settings_Log.ini"_s), expected); // by the watcher, at the first load
    }

    // Text that breaks out of its field, level names shifted by one.
    void writesJsonLines()
    {
        place.load(logger, "[LoggerFileChannel]\nflush=true\n");
        logger.out(Zyr::Warning, u"say \"ä\\\" \r\n%1"_s).arg(u"end"_s).endl();
        QTRY_COMPARE(place.lines(u"settings.log"_s).size(), 1);
        const QJsonObject record = QJsonDocument::fromJson(place.read(u"settings.log"_s)).object();
        QCOMPARE(record[u"level"].toString() + u' ' + record[u"msg"].toString(), u"warn say \"ä\\\"  end"_s);
    }

    void appliesValues_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QString>("texts");
        QTest::addColumn<QString>("records");
        const auto row = &QTest::newRow;
        row("empty filter passes all") << settingsFile("textFilters=a||b|") << u"xa;xb;xc"_s << u"error xa;error xb"_s;
        row("filters are trimmed") << settingsFile("textFilters=\" a | b\"") << u"xa;x a y;c b"_s
                                   << u"error x a y;error c b"_s;
        row("filters of the last load stay") << settingsFile() << u"c"_s << u"error c"_s;
        row("suppression is never on") << settingsFile("checkRepeatedMsg=1\namountRepeatedMsg=5") << u"r;r"_s
                                       << u"error r"_s;
        row("false is true") << settingsFile("checkRepeatedMsg=false\namountRepeatedMsg=5") << u"n;n"_s
                             << u"error n;error n"_s;
        row("no number is the default") << settingsFile("checkRepeatedMsg=1\namountRepeatedMsg=x") << u"n;n"_s
                                        << u"error n;error n"_s;
        row("names with commas are a list") << settingsFile({}, "priorityNames=a,b,c,d,e,f,g,h") << u"x"_s << u"c x"_s;
        row("too few names are half applied") << settingsFile({}, "priorityNames=one,two,three") << u"x"_s << u"c x"_s;
        row("refused names end the load") << settingsFile("level=critical", "priorityNames=one") << u"x"_s << u""_s;
    }

    void appliesValues()
    {
        QFETCH(const QByteArray, settings);
        QFETCH(const QString, texts);
        const RecordingListener listener(logger);
        place.load(logger, settings);
        for (const QString& text : texts.split(u';'))
            logger.out(Zyr::Error, text).endl();
        QTEST(listener.records().join(u';'), "records");
    }

    void refusesCounts_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<QByteArray>("problem");
        const auto refused = [](const QByteArray& key, const QByteArray& value, const QByteArray& maxCount) {
            QTest::newRow(key + '=' + value)
                << key + '=' + value << key + " = '" + value + "' legal is a number from 0 to " + maxCount;
        };
        for (const char* const value : {"-1", "100001", "99999999999", "123456789012345678901234567890"})
            refused("amountRepeatedMsg", value, "100000");
        for (const char* const value : {"-1", "4294967296"})
            refused("maxRepeatedMsgCounter", value, "4294967295");
    }

    // A number that wraps round to another one, an unlimited number of records kept; a refusal that is not reported.
    void refusesCounts()
    {
        QFETCH(const QByteArray, keys);
        QFETCH(const QByteArray, problem);
        const auto write = [](Zyr::Logger& target) {
            const RecordingListener listener(target);
            for (const QChar text : u"abcdacaaa"_s)
                target.out(Zyr::Error, text).endl();
            target.flushLog();
            return listener.records().join(u';').remove(u"error "_s);
        };
        logger.flushLog();
        const QByteArray on = "checkRepeatedMsg=1\n";
        place.load(logger, settingsFile(on + "amountRepeatedMsg=3\nmaxRepeatedMsgCounter=2"));
        const QByteArray kept = on + "amountRepeatedMsg=3\nmaxRepeatedMsgCounter=2\n" + keys; // the last one counts
        const QByteArray errors = errorsOf([&] { place.load(logger, settingsFile(kept)); });
        QCOMPARE(errors, place.path(u"settings_Log.ini: [Logger] "_s).toUtf8() + problem + '\n');
        QCOMPARE(write(logger), u"a;b;c;d;a;a... (repeated 2 times).;a;c... (repeated 1 times)."_s);

        Zyr::Logger fresh(u"Counts"_s, u"counts.log"_s, place.write(u"counts.ini"_s, settingsFile(on + keys)));
        QCOMPARE(write(fresh), u"a;b;c;d;a;c;a;a... (repeated 2 times)."_s);
    }

    void refusesPatterns_data()
    {
        QTest::addColumn<QByteArray>("pattern");
        QTest::addColumn<QByteArray>("shown");
        QTest::newRow("widths") << QByteArray("%v[65536]%t") << QByteArray("%v[65536]%t");
        QTest::newRow("length") << QByteArray(5000, 'x') << QByteArray(100, 'x') + "... (5000 characters)";
    }

    // A pattern that takes all memory, or one that is refused and leaves empty lines, or has the keys behind it applied
    // or reported as unknown; a report of many pages.
    void refusesPatterns()
    {
        QFETCH(const QByteArray, pattern);
        QFETCH(const QByteArray, shown);
        place.load(logger, settingsFile({}, "flush=true"));
        const QByteArray keys = "flush=true\npriorityNames=a,b,c,d,e,f,g,h\npattern=" + pattern;
        const QByteArray errors = errorsOf([&] { place.load(logger, settingsFile({}, keys)); });
        const QByteArray start = "settings_Log.ini: [LoggerFileChannel] pattern = '" + shown + "' Invalid argument: ";
        QVERIFY2(errors.contains(start) && errors.count('\n') == 1, errors);
        logger.out(Zyr::Info, u"old"_s).endl();
        QTRY_COMPARE(place.lines(u"settings.log"_s).last(), u"info old"_s);

        Zyr::Logger fresh(u"Pattern"_s, u"pattern.log"_s, place.write(u"pattern.ini"_s, settingsFile({}, keys)));
        fresh.out(Zyr::Info, u"new"_s).endl();
        QTRY_VERIFY(place.read(u"pattern.log"_s).endsWith("\"level\":\"Information\",\"msg\":\"new\"}\n"));
    }

    // "-path" taken for "path", a directory that is not made; a path from the program that is made absolute or cleaned,
    // that records do not follow, or that outlives the next load.
    void followsThePath()
    {
        const QString moved = place.path(u"new/../new/Ölpumpe.log"_s);
        const QByteArray own = place.path(u"made/for it/own.log"_s).toUtf8();
        place.load(logger, settingsFile({}, "flush=true\npath=" + own));
        logger.out(Zyr::Info, u"there"_s).endl();
        QTRY_COMPARE(place.lines(u"made/for it/own.log"_s), QStringList(u"info there"_s));
        logger.setLogFilePath(moved);
        QCOMPARE(logger.getLogFilePath(), moved);
        logger.out(Zyr::Info, u"moved"_s).endl();
        QTRY_COMPARE(place.lines(u"new/Ölpumpe.log"_s), QStringList(u"info moved"_s));
        place.load(logger, settingsFile({}, "flush=true\n-path=/nowhere/x.log"));
        QCOMPARE(logger.getLogFilePath(), place.path(u"settings.log"_s));
    }

    // An error that is swallowed, a file that stays open after it (the record would go to the removed one), a logger
    // that is dead from then on, a property that makes directories.
    void refusedPropertyClosesTheFile()
    {
        QVERIFY(QFile::remove(place.path(u"settings.log"_s)));
        QVERIFY_EXCEPTION_THROWN(logger.setLogFileProperty(u"colour"_s, u"red"_s), Poco::PropertyNotSupportedException);
        logger.out(Zyr::Info, u"after"_s).endl();
        QTRY_COMPARE(place.lines(u"settings.log"_s), QStringList(u"info after"_s));
        QVERIFY_EXCEPTION_THROWN(logger.setLogFileProperty(u"path"_s, place.path(u"missing/x.log"_s)), Poco::Exception);
        QVERIFY(!QFile::exists(place.path(u"missing"_s)));
    }

    // A file whose lock another program holds, so that it does not rotate, without a report of which program that is.
    void namesWhoHoldsTheLock()
    {
        QFile reader(place.path(place.write(u"held.log"_s, {})));
        QVERIFY(reader.open(QIODevice::ReadOnly) && ::flock(reader.handle(), LOCK_EX) == 0);
        const QByteArray errors = errorsOf([&] {
            Zyr::Logger held(u"Held"_s, u"held.log"_s, u"held_Log.ini"_s);
            held.out(Zyr::Info, u"x"_s).endl();
            QTRY_COMPARE(place.lines(u"held.log"_s).size(), 1);
        });
        QVERIFY2(errors.contains(" (its lock is held by process " + QByteArray::number(::getpid()) + " ("),
                 errors.constData());
    }

    // A chain that is given up, or taken for complete, because its last link could not be made at first; a bad level
    // that counts as some level later, is not reported, or leaves the settings inside a group (load() checks that).
    void refusesLevels()
    {
        Zyr::Logger late(u"Late"_s, u"late.log"_s, place.write(u"late_Log.ini"_s, settingsFile("level=info")));
        const RecordingListener listener(late);
        late.out(Zyr::Info, u"dropped"_s).endl();
        place.load(late, settingsFile({}, "flush=true"));
        QVERIFY_EXCEPTION_THROWN(place.load(late, settingsFile("level=info", "flush=true")),
                                 Poco::InvalidArgumentException);
        late.out(Zyr::Trace, u"written"_s).endl();
        QCOMPARE(listener.records(), QStringList(u"trace written"_s));
        QTRY_COMPARE(place.lines(u"late.log"_s), QStringList(u"trace written"_s));
    }
};

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
