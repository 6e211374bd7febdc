#include "LiteralText.h"

#include <QtCore/QLocale>
#include <QtCore/QStringList>

using namespace Qt::StringLiterals;

namespace {

QString replaced(const QString& text, const QString& what, const QString& by)
{
    return text.split(what).join(by);
}

QString argumentText(const QVariant& value)
{
    const QLocale locale;
    const int type = value.metaType().id();
    if (type == QMetaType::Int || type == QMetaType::LongLong)
        return locale.toString(value.toLongLong());
    if (type == QMetaType::UInt || type == QMetaType::ULongLong)
        return locale.toString(value.toULongLong());
    if (type == QMetaType::Double)
        return locale.toString(value.toDouble(), 'g', 6);
    return value.toString();
}

} // namespace

QString literalText(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics)
{
    QString result = text;
    for (qsizetype number = args.size(); number >= 1; --number)
        result = replaced(result, u"%"_s + QString::number(number), argumentText(args[number - 1]));
    const QStringList keys = topics.keys(); // ascending
    for (const QString& key : keys)
        result = replaced(result, u"%"_s + key, topics[key].toString());
    result = replaced(result, u"\\"_s, u"\\\\"_s);
    result = replaced(result, u"\""_s, u"\\\""_s);
    result = replaced(result, u"\r"_s, u""_s);
    return replaced(result, u"\n"_s, u" "_s);
}
