// The model of a message's text, step by step as it is defined.

#include "LiteralText.h"

#include <QtCore/QLocale>
#include <QtCore/QStringList>

using namespace Qt::StringLiterals;

namespace {

QString replaced(const QString& text, const QString& what, const QString& by)
{
    return text.split(what).join(by);
}

/// A text whose placeholders are replaced from left to right, until the next one would make it longer than `maxSize`.
class Filling
{
public:
    Filling(const QString& begun, qsizetype maxSize)
        : text(begun)
        , room(maxSize - begun.size())
    {
    }

    void fill(const QString& what, const QString& by)
    {
        if (isFull)
            return;
        const QStringList parts = text.split(what);
        const qsizetype more = by.size() - what.size();
        qsizetype filled = 1;
        for (; filled < parts.size() && more <= room; ++filled)
            room -= more;
        isFull = filled < parts.size();
        text = parts.first(filled).join(by);
        for (const QString& part : parts.sliced(filled))
            text += what + part;
    }

    QString text;
    bool isFull = false;

private:
    qsizetype room;
};

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

qsizetype maxUnits(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics)
{
    qsizetype units = text.size() + 1'048'576;
    for (const QVariant& value : args)
        units += argumentText(value).size();
    for (const QVariant& value : topics)
        units += value.toString().size();
    return units;
}

QString literalText(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics)
{
    Filling filling(text, maxUnits(text, args, topics));
    for (qsizetype number = args.size(); number >= 1; --number)
        filling.fill(u"%"_s + QString::number(number), argumentText(args[number - 1]));
    const QStringList keys = topics.keys(); // ascending
    for (const QString& key : keys)
        filling.fill(u"%"_s + key, topics[key].toString());
    QString result = replaced(filling.text, u"\\"_s, u"\\\\"_s);
    result = replaced(result, u"\""_s, u"\\\""_s);
    result = replaced(result, u"\r"_s, u""_s);
    result = replaced(result, u"\n"_s, u" "_s);
    return filling.isFull ? result + unfilledMark : result;
}
