#pragma once

#include <QtCore/QLocale>

#include <cstring>
#include <limits>

namespace Zyr {

/// A few bytes of UTF-8.
struct Symbol
{
    static constexpr int capacity = 16;

    /// Copies all the bytes there could be, which is faster than as many as there are: up to `capacity` bytes behind
    /// the symbol get overwritten.
    char* writeTo(char* to) const noexcept
    {
        std::memcpy(to, bytes, capacity);
        return to + size;
    }

    char bytes[capacity] = {};
    int size = 0;
};

/// How a locale writes numbers.
struct NumberSymbols
{
    /// False where the locale's ways do not fit in here. True does not yet mean that they were understood: that shows
    /// in a comparison with what the locale writes.
    bool deriveFrom(const QLocale& locale);

    char digits[10][4] = {}; // in UTF-8, `digitSize` bytes each
    int digitSize = 1;
    bool asciiDigits = true;
    Symbol minus;
    Symbol groupSeparator;
    Symbol decimalPoint;
    Symbol positiveExponent; // what is between the digits of 1e+10
    Symbol negativeExponent;
    bool twoDigitExponent = true; // at least

    static constexpr int never = std::numeric_limits<int>::max();
    int groupedFrom = never; // the number of digits that are the fewest to be grouped
    int firstGroup = never;  // the fewest digits of that group: with 2, 1234567 is written 1234.567
    int otherGroups = 1;
    int lastGroup = 1;
};

} // namespace Zyr
