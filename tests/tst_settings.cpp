// What a logger makes of its settings: defaults, conversions, refused values.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QScopeGuard>
#include <QtCore/QSettings>
#include <QtTest/QTest>

#include <Poco/Exception.h>

using namespace Qt::StringLiterals;

class TestSettings : public QObject
{
    Q_OBJECT

private:
    bool apply(Zyr::Logger& target, const QByteArray& bytes)
    {
        const QString name = u"%1.ini"_s.arg(++applied); // QSettings caches files by name
        place.write(name, bytes);
        QSettings settings(place.path(name), QSettings::IniFormat);
        const auto check = qScopeGuard([&] { QCOMPARE(settings.group(), QString()); });
        return target.createLoggerBySettings(settings);
    }

    TestPlace place;
    int applied = 0;
    Zyr::Logger logger{u"Settings"_s, u"settings.log"_s, u"settings_Log.ini"_s};

private Q_SLOTS:
    // A default, a type or a key that differs, a key too many, a change that is not told or told twice.
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

    // Text that breaks out of its field, level names shifted by one, a time stamp without milliseconds or zone.
    void writesJsonLines()
    {
        apply(logger, "[LoggerFileChannel]\nflush=true\n");
        logger.out(Zyr::Warning, u"say \"ä\\\" \r\n%1"_s).arg(u"end"_s).endl();
        QTRY_COMPARE(place.lines(u"settings.log"_s).size(), 1);
        const QJsonObject record = QJsonDocument::fromJson(place.read(u"settings.log"_s)).object();
        QCOMPARE(record[u"level"].toString() + u' ' + record[u"msg"].toString(), u"warn say \"ä\\\"  end"_s);
        const QRegularExpression time(u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}([+-]\\d{4}|GMT)$"_s);
        QVERIFY(time.match(record[u"timestamp"].toString()).hasMatch());
    }

    void appliesValues_data()
    {
        QTest::addColumn<QByteArray>("loggerKeys");
        QTest::addColumn<QByteArray>("channelKeys");
        QTest::addColumn<QString>("texts");
        QTest::addColumn<QString>("lines");
        const auto row = [](const char* bug, const char* keys, const char* channelKeys, QString texts, QString lines) {
            QTest::newRow(bug) << QByteArray(keys) << QByteArray(channelKeys) << texts << lines;
        };
        row("empty filter passes all", "textFilters=a||b|", "", u"xa;xb;xc"_s, u"error xa;error xb"_s);
        row("filters are trimmed", "textFilters=\" a | b\"", "", u"xa;x a y;c b"_s, u"error x a y;error c b"_s);
        row("filters of the last load stay", "", "", u"c"_s, u"error c"_s);
        row("value with a comma is a list", "textFilters=a,b", "", u"a;a,b"_s, u"error a,b"_s);
        row("suppression is never on", "checkRepeatedMsg=1\namountRepeatedMsg=5", "", u"r;r"_s, u"error r"_s);
        row("false is true", "checkRepeatedMsg=false\namountRepeatedMsg=5", "", u"n;n"_s, u"error n;error n"_s);
        row("no number is the default", "checkRepeatedMsg=1\namountRepeatedMsg=x", "", u"n;n"_s, u"error n;error n"_s);
        row("names with commas are a list", "", "priorityNames=a,b,c,d,e,f,g,h", u"x"_s, u"c x"_s);
        row("too few names are half applied", "", "priorityNames=one,two,three", u"x"_s, u"c x"_s);
        row("refused names end the load", "level=critical", "priorityNames=one", u"x"_s, u""_s);
    }

    void appliesValues()
    {
        QFETCH(const QByteArray, loggerKeys);
        QFETCH(const QByteArray, channelKeys);
        QFETCH(const QString, texts);
        const RecordingListener listener(logger);
        apply(logger, settingsFile(loggerKeys, channelKeys));
        for (const QString& text : texts.split(u';'))
            logger.out(Zyr::Error, text).endl();
        QStringList lines;
        for (const RecordingListener::Record& record : listener.records()) {
            QCOMPARE(record.line, record.priority + u' ' + record.text);
            lines.append(record.line);
        }
        QTEST(lines.join(u';'), "lines");
    }

    // "-path" taken for "path", a configured path whose directory is not made, a default path that is lost by it.
    void followsThePath()
    {
        const QString own = place.path(u"made/for it/own.log"_s);
        apply(logger, settingsFile({}, "flush=true\npath=" + own.toUtf8()));
        logger.out(Zyr::Info, u"there"_s).endl();
        QTRY_COMPARE(place.lines(u"made/for it/own.log"_s), QStringList(u"info there"_s));
        apply(logger, settingsFile({}, "-path=/nowhere/x.log"));
        QCOMPARE(logger.getLogFilePath(), place.path(u"settings.log"_s));
    }

    // A chain that is given up, or taken for complete, because its last link could not be made at first; a bad level
    // that counts as some level later, is not told, or leaves the settings inside a group (apply() looks).
    void refusesLevels()
    {
        place.write(u"late_Log.ini"_s, settingsFile("level=info"));
        Zyr::Logger late(u"Late"_s, u"late.log"_s, u"late_Log.ini"_s);
        const RecordingListener listener(late);
        late.out(Zyr::Info, u"dropped"_s).endl();
        apply(late, settingsFile({}, "flush=true"));
        QVERIFY_EXCEPTION_THROWN(apply(late, settingsFile("level=info", "flush=true")), Poco::InvalidArgumentException);
        late.out(Zyr::Trace, u"written"_s).endl();
        QCOMPARE(listener.texts(), QStringList(u"written"_s));
        QTRY_COMPARE(place.lines(u"late.log"_s), QStringList(u"trace written"_s));
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
