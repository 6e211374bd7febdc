// The file channel's properties: which texts are legal, what they say, and what is left of them when one is refused.

#include "settings/FileProperties.h"

#include <QtTest/QtTest>

#include <Poco/AutoPtr.h>
#include <Poco/Exception.h>
#include <Poco/FileChannel.h>

using namespace std::chrono_literals;
using Rule = Zyr::RotationRule;

static const std::vector<std::string> names = {"path",     "rotation",   "archive", "times",       "compress",
                                               "purgeAge", "purgeCount", "flush",   "rotateOnOpen"};

/// The property's text after it was set, or the name of the exception, whose message tells both.
static std::string ours(const std::string& name, const QByteArray& value)
{
    Zyr::FileProperties properties;
    try {
        properties.set(name, value.toStdString());
        return "'" + properties.get(name) + "'";
    } catch (const Poco::Exception& e) {
        return e.message().starts_with(name + " '" + value.data() + "': legal are ") ? e.name() : e.displayText();
    }
}

static std::string stock(const std::string& name, const QByteArray& value)
{
    Poco::AutoPtr<Poco::FileChannel> channel(new Poco::FileChannel);
    try {
        channel->setProperty(name, value.toStdString());
        return "'" + channel->getProperty(name) + "'";
    } catch (const Poco::Exception& e) {
        return e.name();
    }
}

/// Times as weekday/hour/minute; -1 stands for any.
static std::string described(const Rule& rule)
{
    if (rule.kind == Rule::Kind::Size)
        return std::to_string(rule.size) + " bytes";
    if (rule.kind != Rule::Kind::TimeOfDay)
        return rule.kind == Rule::Kind::Never ? "" : std::to_string(rule.interval.count()) + " s";
    const int weekday = rule.weekday.value_or(-1), hour = rule.hour.value_or(-1);
    return "at " + std::to_string(weekday) + '/' + std::to_string(hour) + '/' + std::to_string(rule.minute);
}

class tst_FileProperties : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Other defaults than POCO's, in the texts or in what they say.
    void startsLikePoco()
    {
        const Zyr::FileProperties properties;
        for (const Poco::AutoPtr<Poco::FileChannel> channel(new Poco::FileChannel); const std::string& name : names)
            QCOMPARE(properties.get(name), channel->getProperty(name));
        const Zyr::FileSettings& settings = properties.settings();
        QVERIFY(described(settings.rotation).empty() && !settings.timestampedArchives && !settings.localTimes);
        QVERIFY(!settings.purgeAge && !settings.purgeCount && settings.flush && !settings.compress);
    }

    // A wrong unit, a swapped part of the time of day, an overflow; a legal text that is refused.
    void readsRotations()
    {
        const QByteArray texts = "never=|100=100 bytes|3M=3145728 bytes| 7 K =7168 bytes|3000 M=3145728000 bytes|"
                                 "daily=86400 s|weekly=604800 s|monthly=2592000 s|5seconds=5 s|1 minutes=60 s|"
                                 "48 hours=172800 s|2 days=172800 s|3 weeks=1814400 s|9999 months=3155760000 s|"
                                 ":35=at -1/-1/35|00:00=at -1/0/0|Wednesday,18:59=at 3/18/59|sAt,00:07=at 6/0/7";
        for (const QByteArray& entry : texts.split('|')) {
            const QByteArray text = entry.split('=').first();
            Zyr::FileProperties properties;
            properties.set("rotation", text.toStdString());
            QCOMPARE(text + '=' + described(properties.settings().rotation).c_str(), entry);
            QCOMPARE(ours("rotation", text), stock("rotation", text));
        }
        QCOMPARE(ours("rotation", "mon,:35"), "'mon,:35'"); // documented; POCO takes the weekday for the hour
    }

    // A text that is accepted or refused unlike POCO does, with another exception, or returned otherwise.
    void agreesWithPoco()
    {
        const std::pair<const char*, const char*> rows[] = {
            {"rotation", "|Never|Daily|1 day|3 m|1 G|1 MB|0|-5|0 seconds|M|seconds|mon|:|mon,5|we,1:00|ab:cd|12:00:00"},
            {"archive", "number|timestamp||Number"},
            {"times", "utc|local"},
            {"compress", "true|TRUE|false|yes|1|"},
            {"purgeAge", "5 seconds|5minutes|1 hours|2 days|3 weeks|4 months|none||0|0 days|-5|days|5 years|5 Days"},
            {"purgeCount", "5| 5 |0|-5|x"}};
        for (const auto& [name, texts] : rows) {
            for (const QByteArray& text : QByteArray(texts).split('|'))
                QVERIFY2(ours(name, text) == stock(name, text), name + ('=' + text));
        }
    }

    // Texts at which POCO hangs, which it misreads, or which it refuses against its documentation.
    void differsFromPoco()
    {
        const std::array<const char*, 3> rows[] = {
            {"rotation", "25:00|12:75|mon,24:00|1.5 M|99999999999 days|17592186044416 M", "Invalid argument"},
            {"times", "UTC||gmt", "Property not supported"},
            {"purgeAge", "5 days 3|99999999999|99999999999 days", "Invalid argument"},
            {"purgeCount", "5 x|5x|99999999999", "Invalid argument"}};
        for (const auto& [name, texts, result] : rows) {
            for (const QByteArray& text : QByteArray(texts).split('|'))
                QVERIFY2(ours(name, text) == result, name + ('=' + text));
        }
    }

    // A refused value that leaves traces, or takes an earlier one with it; a purge rule that switches the other one
    // off, as in POCO.
    void keepsTheOthers()
    {
        Zyr::FileProperties properties;
        properties.set("rotation", "mon,1:02");
        properties.set("archive", "timestamp");
        properties.set("times", "local");
        properties.set("purgeAge", "90");
        properties.set("purgeCount", "2");
        const Zyr::FileProperties before = properties;
        for (const char* refused : {"rotation", "archive", "times", "purgeAge", "purgeCount", "pattern"}) {
            QVERIFY_THROWS_EXCEPTION(Poco::Exception, properties.set(refused, "tue,3:99"));
            QVERIFY2(properties.settings() == before.settings(), refused);
            for (const std::string& name : names)
                QCOMPARE(properties.get(name), before.get(name));
        }
        const Zyr::FileSettings& settings = properties.settings();
        QVERIFY(settings.purgeAge == 90s && settings.purgeCount == 2u);
        properties.set("purgeAge", "");
        QVERIFY(!settings.purgeAge && settings.purgeCount == 2u && properties.get("purgeAge") == "none");
    }
};

QTEST_GUILESS_MAIN(tst_FileProperties)
#include "tst_fileproperties.moc"
