#pragma once

#include <QtCore/QLocale>

#include <cstring>
#include <limits>

namespace Zyr {

/// A few bytes of UTF-8.
struct Symbol
{
    static constexpr int capacity = 16;

    /// Always copies `capacity` bytes, which is faster than copying `size`: what lies behind the symbol is overwritten.
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
    /// False where the locale's symbols do not fit into these fields. True is no proof that they were understood, which
    /// only a comparison with the locale's own output shows.
    bool deriveFrom(const QLocale& locale);

    char digits[10][4] = {}; // in UTF-8, `digitSize` bytes each
    int digitSize = 1;
    bool asciiDigits = true;
    Symbol minus;
    Symbol groupSeparator;
    Symbol decimalPoint;
    Symbol positiveExponent; // what is between the digits of 1e+10
    Symbol negativeExponent;
    bool twoDigitExponent = true; // at least two

    static constexpr int never = std::numeric_limits<int>::max();
    int groupedFrom = never; // numbers with fewer digits are not grouped
    int firstGroup = never;  // min. digits of the first group: with 2, 1234567 is written 1234.567
    int otherGroups = 1;
    int lastGroup = 1;
};

} // namespace Zyr
