// A message's text in one pass, instead of the steps that define it: one replaces all "%n" or "%key" after the other,
// in the outcome of those before, the numbers from the highest down and then the keys in ascending order. Both give the
// same where
//  - no value contains a '%', so that each '%' is one of the text's own,
//  - each '%' is taken by the first step whose name follows it in the text, and not by an earlier one whose name only
//    begins there, directly before another placeholder, and is completed by that one's value,
//  - no value holds half a character, which could meet its other half,
//  - the text stays within its bound.

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

// Steps in the order in which they happen count down: those of numbers are their numbers.
constexpr qsizetype stepsOfKeys = 0;
constexpr qsizetype lastStep = -1;
constexpr qsizetype noStep = std::numeric_limits<qsizetype>::max();

constexpr qsizetype longestNumber = 128; ///< and longer than any locale's

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
    /// Puts the value of what follows a '%', or the '%' alone. A value put by a step before the one that it would
    /// complete a name for is not for one pass.
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

    /// Moves behind the longest number that has a value, which is the highest and replaced first. 0 if there is none.
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

    /// Moves behind the shortest key that follows, which is the first in order. Null if none does.
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
        if (!takeRoom(longestNumber))
            return false;
        if (byLocale) {
            if (!numbers)
                numbers.emplace();
            else if (!knowsLocale)
                numbers->update();
            knowsLocale = true;
            numbers->append(number, to);
        } else if constexpr (std::is_integral_v<Number>) {
            constexpr int mostDigits = 20;
            char* const digits = to.room(mostDigits);
            to.extendTo(std::to_chars(digits, digits + mostDigits, number).ptr);
        }
        return true;
    }

    /// Before that many units are put. While there is room, the text is within its bound after each step too.
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
    qsizetype room = mostGrowth; ///< for values
    const qsizetype argCount;
    const char16_t* at;
    const char16_t* const end;
    qsizetype completed = noStep; ///< the last step that could take the last '%' if a value came directly behind it
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
