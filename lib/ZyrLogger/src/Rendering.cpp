// The final text of a message: placeholders filled in, then escaped for a double-quoted field of a one-line record.

#include <ZyrLogger/LogMessage.h>

#include <QtCore/QLocale>
#include <QtCore/QMetaType>

namespace Zyr {

namespace {

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

/// Backslashes first, so that the ones added before quotes are not doubled again.
void escape(QString& text)
{
    text.replace(u'\\', QLatin1String("\\\\"));
    text.replace(u'"', QLatin1String("\\\""));
    text.remove(u'\r');
    text.replace(u'\n', u' ');
}

} // namespace

QString LogMessage::getStr()
{
    QString result = text;
    const QLocale locale;
    // From the highest number down, so that %12 is gone before %1 could take its first two characters. Each
    // substitution works on the outcome of the ones before it.
    for (qsizetype number = args ? args->size() : 0; number > 0; --number)
        result.replace(u'%' + QString::number(number), renderArgument(args->at(number - 1), locale));
    if (topics) {
        for (auto topic = topics->cbegin(); topic != topics->cend(); ++topic)
            result.replace(u'%' + topic.key(), topic->toString());
    }
    escape(result);
    return result;
}

} // namespace Zyr
