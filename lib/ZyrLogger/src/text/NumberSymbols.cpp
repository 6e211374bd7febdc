// A locale's symbols for numbers. QLocale has no calls for group sizes and whole exponents, which are read off numbers
// that it writes.

#include "text/NumberSymbols.h"

#include <algorithm>
#include <limits>

namespace Zyr {

namespace {

bool take(QStringView text, Symbol& symbol)
{
    const QByteArray utf8 = text.toUtf8();
    if (utf8.size() > Symbol::capacity)
        return false;
    std::memcpy(symbol.bytes, utf8.constData(), std::size_t(utf8.size()));
    symbol.size = int(utf8.size());
    return true;
}

bool takeDigits(const QLocale& locale, NumberSymbols& symbols)
{
    for (int digit = 0; digit < 10; ++digit) {
        const QByteArray utf8 = locale.toString(digit).toUtf8();
        if (digit == 0)
            symbols.digitSize = int(utf8.size());
        if (utf8.size() != symbols.digitSize || utf8.size() > qsizetype(sizeof symbols.digits[digit]))
            return false;
        std::memcpy(symbols.digits[digit], utf8.constData(), std::size_t(utf8.size()));
    }
    symbols.asciiDigits = symbols.digitSize == 1 && symbols.digits[0][0] == '0';
    return true;
}

/// What stands between the 1 and the 10 of a power of ten.
bool takeExponent(const QString& power, qsizetype digitSize, Symbol& symbol)
{
    if (power.size() < 3 * digitSize)
        return false;
    return take(QStringView(power).sliced(digitSize).chopped(2 * digitSize), symbol);
}

void takeGroups(const QLocale& locale, qsizetype digitSize, NumberSymbols& symbols)
{
    const QString separator = locale.groupSeparator();
    qlonglong number = 1;
    for (int digits = 1; digits <= std::numeric_limits<qlonglong>::digits10; ++digits, number *= 10) {
        const QString text = locale.toString(number);
        if (text.size() == digits * digitSize)
            continue;
        symbols.groupedFrom = std::min(symbols.groupedFrom, digits);
        const QStringList groups = text.split(separator);
        if (groups.size() < 3)
            continue;
        symbols.firstGroup = std::min(symbols.firstGroup, int(groups.first().size() / digitSize));
        symbols.otherGroups = int(groups.at(groups.size() - 2).size() / digitSize);
        symbols.lastGroup = int(groups.last().size() / digitSize);
    }
}

} // namespace

bool NumberSymbols::deriveFrom(const QLocale& locale)
{
    *this = {};
    const qsizetype digit = locale.zeroDigit().size(); // in UTF-16
    if (!takeDigits(locale, *this) || !take(locale.negativeSign(), minus) ||
        !take(locale.groupSeparator(), groupSeparator) || !take(locale.decimalPoint(), decimalPoint) ||
        !takeExponent(locale.toString(1e10, 'g', 6), digit, positiveExponent) ||
        !takeExponent(locale.toString(1e-10, 'g', 6), digit, negativeExponent))
        return false;
    takeGroups(locale, digit, *this);
    twoDigitExponent = locale.toString(1e7, 'g', 6).size() == locale.toString(1e10, 'g', 6).size();
    return true;
}

} // namespace Zyr
