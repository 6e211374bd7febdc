// The final text of a message: placeholders filled in, then escaped for a double-quoted field of a one-line record.

#include <ZyrLogger/LogMessage.h>

#include "text/TextRenderer.h"

#include <QtCore/QLocale>
#include <QtCore/QMetaType>
#include <QtCore/QStringMatcher>

#include <algorithm>
#include <limits>
#include <utility>

namespace Zyr {

namespace {

constexpr QStringView unfilledMark = u" [placeholders left unfilled: the text would be too long]";

QString renderArgument(const QVariant& value, const QLocale& locale)
{
    switch (value.metaType().id()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
        return locale.toString(value.toLongLong());
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return locale.toString(value.toULongLong());
    case QMetaType::Double:
        return locale.toString(value.toDouble(), 'g', 6);
    default:
        return value.toString();
    }
}

/// In the order in which they are filled in. Each value is converted only once: conversions may be the application's.
QStringList valueTexts(const QList<QVariant>* args, const QMap<QString, QVariant>* topics)
{
    QStringList texts;
    const QLocale locale;
    for (qsizetype number = args ? args->size() : 0; number > 0; --number)
        texts.append(renderArgument(args->at(number - 1), locale));
    if (topics) {
        for (const QVariant& value : *topics)
            texts.append(value.toString());
    }
    return texts;
}

/// Values that hold placeholders multiply, so memory and time need a bound.
qint64 maxSize(const QString& text, const QStringList& values)
{
    qint64 size = text.size() + qint64(maxGrowth);
    for (const QString& value : values)
        size += value.size();
    return std::min<qint64>(size, std::numeric_limits<qsizetype>::max());
}

/// Replaces the placeholder from left to right, until the next one would make the text longer than `limit`; false then.
bool fill(QString& text, const QString& placeholder, const QString& value, qint64 limit)
{
    const QStringMatcher matcher(placeholder);
    const auto find = [&](qsizetype from) { return matcher.indexIn(text, from); };
    const qint64 growth = value.size() - placeholder.size();
    qint64 size = text.size();
    qsizetype count = 0;
    qsizetype next = find(0);
    for (; next >= 0 && size + growth <= limit; next = find(next + placeholder.size())) {
        size += growth;
        ++count;
    }
    if (count > 0) {
        // In one pass: QString::replace() moves the rest of the text after each thousand matches.
        QString filled(qsizetype(size), Qt::Uninitialized);
        const QChar* from = text.cbegin();
        QChar* to = filled.data();
        for (; count > 0; --count) {
            const QChar* const at = text.cbegin() + find(from - text.cbegin());
            to = std::copy(from, at, to);
            to = std::copy(value.cbegin(), value.cend(), to);
            from = at + placeholder.size();
        }
        std::copy(from, text.cend(), to);
        text = std::move(filled);
    }
    return next < 0;
}

QString escaped(const QString& text)
{
    const auto isEscaped = [](QChar unit) { return unit == u'\\' || unit == u'"'; };
    const auto added = std::count_if(text.cbegin(), text.cend(), isEscaped);
    QString result(text.size() + added - text.count(u'\r'), Qt::Uninitialized);
    QChar* to = result.data();
    for (const QChar unit : text) {
        if (unit == u'\r')
            continue;
        if (isEscaped(unit))
            *to++ = u'\\';
        *to++ = unit == u'\n' ? u' ' : unit;
    }
    return result;
}

} // namespace

QString LogMessage::getStr()
{
    QString result = text;
    const QStringList values = valueTexts(args, topics);
    const qint64 limit = maxSize(text, values);
    auto value = values.cbegin();
    bool fits = true;
    // From the highest number down: %1 would match in %12. Each step works on the result of the one before.
    for (qsizetype number = args ? args->size() : 0; fits && number > 0; --number)
        fits = fill(result, u'%' + QString::number(number), *value++, limit);
    if (topics) {
        for (auto topic = topics->cbegin(); fits && topic != topics->cend(); ++topic)
            fits = fill(result, u'%' + topic.key(), *value++, limit);
    }
    result = escaped(result);
    if (!fits)
        result += unfilledMark;
    return result;
}

} // namespace Zyr
