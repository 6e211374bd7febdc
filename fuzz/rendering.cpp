// A message's text: placeholders, values of any kind and any locale. It is what the steps that define it give, by
// either of the library's ways, and fit for a double-quoted field of a one-line record.

#include "Check.h"
#include "LiteralText.h"

#include "text/TextRenderer.h"

#include <ZyrLogger/LogMessage.h>

#include <QtCore/QBitArray>
#include <QtCore/QDateTime>
#include <QtCore/QLocale>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <string>
#include <type_traits>

using namespace Qt::StringLiterals;

namespace {

/// ASCII stands for itself; bytes below 8 and above 127 begin a UTF-16 unit of two bytes, so that NUL and halves of
/// characters are as likely as anything else.
QString textOf(const std::string& bytes)
{
    QString text;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const auto byte = static_cast<unsigned char>(bytes[at]);
        const bool begins = (byte < 8 || byte > 127) && at + 1 < bytes.size();
        text += begins ? QChar(char16_t(byte << 8 | static_cast<unsigned char>(bytes[++at]))) : QChar(char16_t(byte));
    }
    return text;
}

void setLocale(FuzzedDataProvider& input)
{
    static const QList<QLocale> all =
        QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyTerritory);
    const auto index = input.ConsumeIntegralInRange<qsizetype>(0, all.size() - 1);
    const auto options = input.ConsumeIntegralInRange<int>(0, 15);
    QLocale chosen = all[index];
    chosen.setNumberOptions(QLocale::NumberOptions(options));
    if (chosen != QLocale() || chosen.numberOptions() != QLocale().numberOptions())
        QLocale::setDefault(chosen);
}

template <typename Use>
void useValue(FuzzedDataProvider& input, Use use)
{
    constexpr std::size_t longest = 100;
    switch (input.ConsumeIntegralInRange(0, 20)) {
    case 0:
        return use(input.ConsumeIntegral<int>());
    case 1:
        return use(input.ConsumeIntegral<uint>());
    case 2:
        return use(input.ConsumeIntegral<qlonglong>());
    case 3:
        return use(input.ConsumeIntegral<qulonglong>());
    case 4:
        return use(std::bit_cast<double>(input.ConsumeIntegral<quint64>()));
    case 5: // one that people write
        return use(double(input.ConsumeIntegral<qint16>()) / 1000);
    case 6:
        return use(input.ConsumeIntegral<long>());
    case 7:
        return use(input.ConsumeIntegral<unsigned long>());
    case 8:
        return use(input.ConsumeIntegral<short>());
    case 9:
        return use(std::bit_cast<float>(input.ConsumeIntegral<quint32>()));
    case 10:
        return use(input.ConsumeBool());
    case 11:
        return use(input.ConsumeRandomLengthString(longest));
    case 12:
        return use(input.ConsumeRandomLengthString(longest).c_str());
    case 13:
        return use(QByteArray::fromStdString(input.ConsumeRandomLengthString(longest)));
    case 14:
        return use(QChar(input.ConsumeIntegral<char16_t>()));
    case 15:
        return use(QStringList(input.ConsumeIntegralInRange(0, 2), textOf(input.ConsumeRandomLengthString(longest))));
    case 16:
        return use(QVariantList(1, input.ConsumeIntegral<int>()));
    case 17:
        return use(QVariant());
    case 18:
        return use(QDateTime::fromMSecsSinceEpoch(input.ConsumeIntegral<int>(), Qt::UTC));
    default:
        return use(textOf(input.ConsumeRandomLengthString(longest)));
    }
}

/// What a message is to keep of a value.
template <typename Value>
QVariant meant(const Value& value)
{
    if constexpr (std::is_same_v<Value, short>)
        return int(value);
    else if constexpr (std::is_same_v<Value, std::string>)
        return QString::fromUtf8(value.data(), qsizetype(value.size()));
    else if constexpr (std::is_same_v<Value, const char*>)
        return QString::fromUtf8(value);
    else
        return QVariant::fromValue(value);
}

bool isPlain(const QString& text)
{
    return text.isValidUtf16() && !text.contains(QChar(0));
}

/// Whether one pass has to do: each '%' is the text's own, and nothing but it can come directly behind what may be the
/// beginning of a placeholder.
bool needsOnePass(const QString& text, const QList<QVariant>& args, const QMap<QString, QVariant>& topics)
{
    const auto isPlainValue = [](const QVariant& value) {
        const QString valueText = value.toString();
        return isPlain(valueText) && !valueText.contains(u'%');
    };
    const auto isPlainKey = [](const QString& key) { return !key.isEmpty() && isPlain(key) && !key.contains(u'%'); };
    if (!isPlain(text) || !std::all_of(args.begin(), args.end(), isPlainValue) ||
        !std::all_of(topics.begin(), topics.end(), isPlainValue) ||
        !std::all_of(topics.keyBegin(), topics.keyEnd(), isPlainKey))
        return false;
    const QStringList parts = text.split(u'%');
    for (qsizetype part = 1; part + 1 < parts.size(); ++part) {
        const QString& name = parts[part];
        const bool isNumber = std::all_of(name.begin(), name.end(), [](QChar digit) { return digit.isDigit(); });
        if (isNumber ||
            std::any_of(topics.keyBegin(), topics.keyEnd(), [&](const QString& key) { return key.startsWith(name); }))
            return false;
    }
    return true;
}

bool isFitForRecord(QStringView text)
{
    bool escaped = false;
    for (const QChar character : text) {
        if (character == u'\n' || character == u'\r' || (character == u'"' && !escaped))
            return false;
        escaped = character == u'\\' && !escaped;
    }
    return !escaped;
}

void checkOnePass(const Zyr::LogMessage& message, const QByteArray& expected, bool isNeeded)
{
    // Kept like a thread's, which takes over a default locale that has changed.
    static std::optional<Zyr::LocaleNumbers> numbers;
    Zyr::LineBuffer line;
    line.append("kept ");
    const bool once = Zyr::renderText(message, numbers, line);
    const std::string_view found = line.view();
    checkEqual({found.data(), qsizetype(found.size())}, "kept " + (once ? expected : QByteArray()),
               "One pass gives the text of the steps, or nothing");
    check(once || !isNeeded, "One pass does where it can", expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t maxTextSize = 2000;
    constexpr std::size_t maxKeySize = 20;
    FuzzedDataProvider input(data, size);
    setLocale(input);
    const QString text = textOf(input.ConsumeRandomLengthString(maxTextSize));
    Zyr::LogMessage message(0, text);
    QList<QVariant> args;
    for (int count = input.ConsumeIntegralInRange(0, 24); count > 0; --count)
        useValue(input, [&](const auto& value) {
            static_cast<void>(message.arg(value));
            args.append(meant(value));
        });
    QMap<QString, QVariant> topics;
    for (int count = input.ConsumeIntegralInRange(0, 6); count > 0; --count) {
        const QString key = textOf(input.ConsumeRandomLengthString(maxKeySize));
        useValue(input, [&](const auto& value) {
            static_cast<void>(message.topic(key, value));
            topics[key] = meant(value);
        });
    }

    const QString rendered = message.getStr();
    const QString expected = literalText(text, args, topics);
    if (rendered != expected)
        checkEqual(rendered.toUtf8(), expected.toUtf8(), "The text is what its definition gives");
    check(rendered.size() <= 2 * maxUnits(text, args, topics) + unfilledMark.size(), "The text has a bound");
    check(isFitForRecord(rendered), "No line break and no quote that is not escaped", rendered.toUtf8());
    checkOnePass(message, rendered.toUtf8(), needsOnePass(text, args, topics));
    check(message.text == text && message.getStr() == rendered, "Rendering changes nothing", rendered.toUtf8());
    return 0;
}
