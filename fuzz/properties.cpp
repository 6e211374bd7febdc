// The properties of the file channel: any text for any of them, taken or refused as the documentation says, and times
// of rotation that follow from them.

#include "Check.h"

#include "settings/ByteSize.h"
#include "settings/FileProperties.h"
#include "store/rotation/RotationTimer.h"
#include "store/rotation/TimeOfDay.h"

#include <QtCore/QHash>
#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

#include <Poco/Exception.h>
#include <Poco/FileChannel.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

using namespace Qt::StringLiterals;
using Poco::FileChannel;
using std::chrono::seconds;
using Zyr::RotationRule;

namespace {

constexpr qint64 minute = 60;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;

constexpr auto zone = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr qint64 shifts[] = {1'774'746'000, 1'792'890'000}; // of this zone in 2026, to summer time and back

const std::string* const names[] = {
    &FileChannel::PROP_PATH,  &FileChannel::PROP_ROTATION,   &FileChannel::PROP_ARCHIVE,
    &FileChannel::PROP_TIMES, &FileChannel::PROP_COMPRESS,   &FileChannel::PROP_PURGEAGE,
    &FileChannel::PROP_FLUSH, &FileChannel::PROP_PURGECOUNT, &FileChannel::PROP_ROTATEONOPEN};

/// The parts of a text that is wholly of a form, with blanks between its parts; nothing for other texts.
std::optional<QStringList> match(const QString& text, const QString& form)
{
    static QHash<QString, QRegularExpression> forms;
    QRegularExpression& compiled = forms[form];
    if (compiled.pattern().isEmpty())
        compiled.setPattern(u"\\A[ \\t-\\r]*"_s + QString(form).replace(u' ', u"[ \\t-\\r]*"_s) + u"[ \\t-\\r]*\\z"_s);
    const QRegularExpressionMatch found = compiled.match(text);
    return found.hasMatch() ? std::optional(found.capturedTexts()) : std::nullopt;
}

std::optional<quint64> countOf(const QString& digits)
{
    bool fits = false;
    const quint64 count = digits.toULongLong(&fits);
    return fits && count >= 1 && count <= INT_MAX ? std::optional(count) : std::nullopt;
}

std::optional<seconds> spanOf(const QString& digits, const QString& unit)
{
    static const QHash<QString, qint64> units{{u"seconds"_s, 1}, {u"minutes"_s, minute}, {u"hours"_s, hour},
                                              {u"days"_s, day},  {u"weeks"_s, 7 * day},  {u"months"_s, 30 * day}};
    const auto count = countOf(digits);
    const qint64 longest = 36525 * day;
    if (!count)
        return std::nullopt;
    return seconds(qint64(*count) > longest / units.value(unit) ? longest : qint64(*count) * units.value(unit));
}

const QString spanForm = u"(\\d+) (seconds|minutes|hours|days|weeks|months)"_s;

/// What a text of the property "rotation" means by its documentation.
std::optional<RotationRule> rotationOf(const QString& text)
{
    RotationRule rule;
    if (match(text, u"never"_s))
        return rule;
    if (const auto parts = match(text, u"(\\d+) ([KM]?)"_s)) {
        bool fits = false;
        const quint64 number = parts->at(1).toULongLong(&fits);
        const quint64 unit = parts->at(2) == u"M" ? 1 << 20 : parts->at(2) == u"K" ? 1 << 10 : 1;
        if (!fits || number == 0 || number > ULLONG_MAX / unit)
            return std::nullopt;
        rule.kind = RotationRule::Kind::Size;
        rule.size = number * unit;
        return rule;
    }
    rule.kind = RotationRule::Kind::Interval;
    if (const auto parts = match(text, u"(daily|weekly|monthly)"_s)) {
        rule.interval = seconds(parts->at(1) == u"daily" ? day : parts->at(1) == u"weekly" ? 7 * day : 30 * day);
        return rule;
    }
    if (const auto parts = match(text, spanForm)) {
        const auto span = spanOf(parts->at(1), parts->at(2));
        if (!span)
            return std::nullopt;
        rule.interval = *span;
        return rule;
    }
    const auto parts = match(text, u"(?:([A-Za-z]*) [,:])? (\\d*) : (\\d+)"_s);
    if (!parts)
        return std::nullopt;
    rule = {};
    rule.kind = RotationRule::Kind::TimeOfDay;
    const QStringList weekdays{u"sunday"_s,   u"monday"_s, u"tuesday"_s, u"wednesday"_s,
                               u"thursday"_s, u"friday"_s, u"saturday"_s};
    if (const QString name = parts->at(1).toLower(); !name.isEmpty()) {
        for (int number = 0; number < 7; ++number) {
            if (name.size() >= 3 && weekdays[number].startsWith(name))
                rule.weekday = number;
        }
        if (!rule.weekday)
            return std::nullopt;
    }
    bool fits = true;
    if (!parts->at(2).isEmpty()) {
        rule.hour = parts->at(2).toInt(&fits);
        if (!fits || *rule.hour > 23)
            return std::nullopt;
    }
    rule.minute = parts->at(3).toInt(&fits);
    return fits && rule.minute < 60 ? std::optional(rule) : std::nullopt;
}

/// What the settings are once a property has been set; nothing where its value is not legal.
std::optional<Zyr::FileSettings> changed(Zyr::FileSettings settings, const std::string& name, const std::string& value)
{
    const QString text = QString::fromLatin1(value.data(), qsizetype(value.size()));
    const bool off = text.isEmpty() || text.compare(u"none", Qt::CaseInsensitive) == 0;
    const bool on = text.compare(u"true", Qt::CaseInsensitive) == 0;
    const auto number = match(text, u"(\\d+)"_s);
    bool legal = true;
    if (name == FileChannel::PROP_PATH) {
        settings.path = value;
    } else if (name == FileChannel::PROP_ROTATION) {
        const auto rule = rotationOf(text);
        legal = rule.has_value();
        settings.rotation = rule.value_or(RotationRule());
    } else if (name == FileChannel::PROP_ARCHIVE) {
        legal = value == "number" || value == "timestamp";
        settings.timestampedArchives = value == "timestamp";
    } else if (name == FileChannel::PROP_TIMES) {
        legal = value == "local" || value == "utc";
        settings.localTimes = value == "local";
    } else if (name == FileChannel::PROP_COMPRESS) {
        settings.compress = on;
    } else if (name == FileChannel::PROP_PURGEAGE) {
        const auto parts = match(text, spanForm);
        settings.purgeAge = parts    ? spanOf(parts->at(1), parts->at(2))
                            : number ? spanOf(number->at(1), u"seconds"_s)
                                     : std::nullopt;
        legal = off || settings.purgeAge;
    } else if (name == FileChannel::PROP_PURGECOUNT) {
        settings.purgeCount = number ? countOf(number->at(1)) : std::nullopt;
        legal = off || settings.purgeCount;
    } else if (name == FileChannel::PROP_FLUSH) {
        settings.flush = on;
    } else {
        settings.rotateOnOpen = on;
    }
    return legal ? std::optional(settings) : std::nullopt;
}

qint64 remainder(qint64 number, qint64 divisor)
{
    return (number % divisor + divisor) % divisor;
}

bool isTimeOf(const RotationRule& rule, qint64 time)
{
    return remainder(time, minute) == 0 && remainder(time, hour) / minute == rule.minute &&
           (!rule.hour || remainder(time, day) / hour == *rule.hour) &&
           (!rule.weekday || remainder((time - remainder(time, day)) / day + 4, 7) == *rule.weekday);
}

/// By trying every minute of a week. What a shift skips of the day comes with it, but no further minute of an hour.
template <typename OffsetAt>
qint64 firstTimeAfter(const RotationRule& rule, qint64 time, OffsetAt offsetAt)
{
    qint64 next = time - remainder(time, minute);
    qint64 offset = offsetAt(next);
    for (;;) {
        next += minute;
        const qint64 before = offset;
        if (remainder(next, hour) == 0) // the only minute of a shift
            offset = offsetAt(next);
        if (isTimeOf(rule, next + offset))
            return next;
        for (qint64 skipped = next + before; rule.hour && skipped < next + offset; skipped += minute) {
            if (isTimeOf(rule, skipped))
                return next;
        }
    }
}

qint64 localOffset(qint64 time)
{
    const std::time_t second = time;
    std::tm fields;
    check(::localtime_r(&second, &fields), "The zone is known");
    return fields.tm_gmtoff;
}

void checkTimeOfDay(const RotationRule& rule, bool local, qint64 after)
{
    const qint64 found = Zyr::firstReached(rule, local, seconds(after)).count();
    const qint64 expected =
        local ? firstTimeAfter(rule, after, localOffset) : firstTimeAfter(rule, after, [](qint64) { return 0; });
    check(found == expected, "The next time of day is the first that the rule names",
          QByteArray::number(after) + (local ? " local -> " : " UTC -> ") + QByteArray::number(found) + ", expected " +
              QByteArray::number(expected));
}

void checkTimes(const RotationRule& rule, FuzzedDataProvider& input)
{
    constexpr qint64 farthest = 8'000'000'000; // in the years 1716 and 2223
    const auto after = input.ConsumeIntegralInRange<qint64>(-farthest, farthest);
    if (rule.kind == RotationRule::Kind::TimeOfDay) {
        checkTimeOfDay(rule, false, after);
        checkTimeOfDay(rule, true, after);
        for (const qint64 shift : shifts) // since few times of all are near one
            checkTimeOfDay(rule, true, shift - 8 * day + remainder(after, 9 * day));
    }

    // Any times, as a wrong clock gives them.
    using Time = Zyr::RotationTimer::Time;
    const auto time = [&] { // the last one of all is that of what never comes
        return Time(Time::duration(input.ConsumeIntegralInRange<qint64>(LLONG_MIN, LLONG_MAX - 1)));
    };
    const Time began = time(), written = time(), now = time();
    Zyr::RotationTimer timer;
    timer.start(rule, input.ConsumeBool(), began, written, now);
    const bool due = timer.isDue(now);
    if (rule.kind == RotationRule::Kind::Never || rule.kind == RotationRule::Kind::Size)
        check(!due, "No rotation by time without a rule for it");
    if (rule.kind == RotationRule::Kind::Interval && began <= now) {
        using Wide = __int128; // the difference of two times does not fit in one
        const Wide passed = Wide(now.time_since_epoch().count()) - began.time_since_epoch().count();
        check(due == (passed >= Wide(Time::duration(rule.interval).count())), "An interval is over when it is");
    }
    timer.isDue(time());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    ::setenv("TZ", zone, 1);
    ::tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t longest = 80;
    FuzzedDataProvider input(data, size);
    Zyr::FileProperties properties;
    for (int count = input.ConsumeIntegralInRange(1, 6); count > 0; --count) {
        const std::string& name = *input.PickValueInArray(names);
        const std::string value = input.ConsumeRandomLengthString(longest);
        const Zyr::FileSettings before = properties.settings();
        bool taken = true;
        try {
            properties.set(name, value);
        } catch (const Poco::Exception&) {
            taken = false;
        }
        const QByteArray details = QByteArray::fromStdString(name + " = " + value);
        const auto expected = changed(before, name, value);
        check(taken == expected.has_value(), "Taken is what the documentation calls legal", details);
        check(taken || properties.settings() == before, "What is refused changes nothing", details);
        if (taken) {
            check(properties.settings() == expected, "A property means what the documentation says", details);
            Zyr::FileProperties again = properties;
            again.set(name, properties.get(name));
            check(again.settings() == properties.settings(), "A property's text says what was set", details);
        }
    }
    checkTimes(properties.settings().rotation, input);
    return 0;
}
