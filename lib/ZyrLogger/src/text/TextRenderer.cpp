// A message's text in one pass. By definition it is made in steps: each replaces all "%n" or all "%key" in the result
// of the step before, the numbers from the highest down, then the keys in ascending order. One pass gives the same if
//  - no value contains a '%',
//  - no placeholder's value can complete, for a later step, a name that begins at the '%' before it: in "%%1" with the
//    value "a" and a key "a", the second step would replace "%a",
//  - no value holds a lone surrogate, which could meet its other half,
//  - the text stays within its bound.
// Else the steps are left to LogMessage::getStr().

#include "text/TextRenderer.h"

#include "base/VectorRegisters.h"
#include "text/EscapedUtf8.h"

#include <ZyrLogger/LogMessage.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <type_traits>
#include <utility>

namespace Zyr {

namespace {

// Steps are numbered downwards in the order in which they happen; the step of "%n" is n.
constexpr qsizetype stepsOfKeys = 0;
constexpr qsizetype lastStep = -1;
constexpr qsizetype noStep = std::numeric_limits<qsizetype>::max();

constexpr qsizetype maxNumberSize = 128; ///< UTF-16 units; no locale needs as many

bool isUsable(const QMap<QString, QVariant>& topics)
{
    return std::all_of(topics.keyBegin(), topics.keyEnd(),
                       [](const QString& key) { return !key.isEmpty() && !key.contains(u'%'); });
}

class TextRenderer
{
public:
    TextRenderer(const LogMessage& source, std::optional<LocaleNumbers>& localeNumbers, LineBuffer& target)
        : message(source)
        , numbers(localeNumbers)
        , to(target)
        , argCount(source.args ? source.args->size() : 0)
        , at(QStringView(source.text).utf16())
        , end(at + source.text.size())
    {
    }

    bool render()
    {
        for (;;) {
            at = appendEscapedUtf8(at, end, to);
            if (at == end)
                return true;
            if (*at != u'%')
                return false;
            ++at;
            if (!putPlaceholder())
                return false;
        }
    }

private:
    /// Writes the value of the placeholder behind a '%', or the '%' alone. False where a later step than the value's
    /// could match across the value: then one pass is not enough.
    bool putPlaceholder()
    {
        const qsizetype completedBefore = std::exchange(completed, noStep);
        qsizetype step = takeNumber();
        const QVariant* value = nullptr;
        if (step != 0) {
            value = &message.args->at(step - 1);
        } else if (message.topics && !message.topics->isEmpty()) {
            if (!isUsable(*message.topics))
                return false;
            step = stepsOfKeys;
            value = takeKey();
        }
        if (!value) {
            to.append("%");
            return true;
        }
        return step <= completedBefore && putValue(*value, step != stepsOfKeys);
    }

    /// Moves behind the longest number that has a value: the highest one is replaced first. 0 if there is none.
    qsizetype takeNumber()
    {
        qsizetype number = 0;
        for (; at != end && *at >= (number == 0 ? u'1' : u'0') && *at <= u'9'; ++at) {
            const qsizetype longer = 10 * number + (*at - u'0');
            if (longer > argCount)
                break;
            number = longer;
        }
        const qsizetype leastCompleted = std::max<qsizetype>(10 * number, 1);
        if (isAtPercent(at) && leastCompleted <= argCount)
            completed = leastCompleted;
        return number;
    }

    /// Moves behind the shortest key that matches: it comes first in ascending order. Null if none matches.
    const QVariant* takeKey()
    {
        for (auto topic = message.topics->cbegin(); topic != message.topics->cend(); ++topic) {
            const QStringView key = topic.key();
            const auto [keyRest, rest] = std::mismatch(key.utf16(), key.utf16() + key.size(), at, end);
            if (keyRest == key.utf16() + key.size()) {
                completed = noStep;
                at = rest;
                return &topic.value();
            }
            if (isAtPercent(rest))
                completed = lastStep;
        }
        return nullptr;
    }

    bool isAtPercent(const char16_t* position) const { return position != end && *position == u'%'; }

    bool putValue(const QVariant& value, bool byLocale)
    {
        const void* const data = value.constData();
        switch (value.metaType().id()) {
        case QMetaType::Int:
            return putNumber(qint64(*static_cast<const int*>(data)), byLocale);
        case QMetaType::LongLong:
            return putNumber(qint64(*static_cast<const qlonglong*>(data)), byLocale);
        case QMetaType::UInt:
            return putNumber(quint64(*static_cast<const uint*>(data)), byLocale);
        case QMetaType::ULongLong:
            return putNumber(quint64(*static_cast<const qulonglong*>(data)), byLocale);
        case QMetaType::Double:
            return byLocale ? putNumber(*static_cast<const double*>(data), true) : putText(value.toString());
        case QMetaType::QString:
            return putText(*static_cast<const QString*>(data));
        default:
            return putText(value.toString());
        }
    }

    bool putText(QStringView text)
    {
        if (!takeRoom(text.size()))
            return false;
        const char16_t* const textEnd = text.utf16() + text.size();
        return appendEscapedUtf8(text.utf16(), textEnd, to) == textEnd;
    }

    template <typename Number>
    bool putNumber(Number number, bool byLocale)
    {
        if (!takeRoom(maxNumberSize))
            return false;
        if (byLocale) {
            if (!numbers)
                numbers.emplace();
            else if (!knowsLocale)
                numbers->update();
            knowsLocale = true;
            numbers->append(number, to);
        } else if constexpr (std::is_integral_v<Number>) {
            constexpr int maxDigits = 20; // of 64 bits, sign included
            char* const digits = to.room(maxDigits);
            to.extendTo(std::to_chars(digits, digits + maxDigits, number).ptr);
        }
        return true;
    }

    /// Called before that many units are written. While there is room, the text is within its bound after every step.
    bool takeRoom(qsizetype units)
    {
        if (units > room)
            return false;
        room -= units;
        return true;
    }

    const LogMessage& message;
    std::optional<LocaleNumbers>& numbers;
    LineBuffer& to;
    qsizetype room = maxGrowth; ///< for values
    const qsizetype argCount;
    const char16_t* at;
    const char16_t* const end;
    qsizetype completed = noStep; ///< last step that could match at the last '%' once a value follows it directly
    bool knowsLocale = false;
};

} // namespace

bool renderText(const LogMessage& message, std::optional<LocaleNumbers>& numbers, LineBuffer& to)
{
    cleanVectorRegisters();
    const std::size_t sizeBefore = to.view().size();
    if (TextRenderer(message, numbers, to).render())
        return true;
    to.extendTo(to.room(0) - (to.view().size() - sizeBefore));
    return false;
}

} // namespace Zyr
