#pragma once

#include <QtCore/QtGlobal>

namespace Zyr {

/// How many decimal digits a number has; one for zero.
int countDigits(quint64 number) noexcept;

/// Writes a number's decimal digits in ASCII so that they end at `end`.
void writeDigits(quint64 number, char* end) noexcept;

/// A number as 'g' with precision 6 needs it: rounded to six significant digits.
struct SixDigits
{
    char digits[16]; // ASCII; the last ten are padding, so that readers may copy eight from any of the six
    int count;       // without trailing zeroes
    int exponent;    // decimal, of the first digit

    /// Ignores the sign. False, with the fields unusable, where the rounding needs exact arithmetic, and for zero,
    /// subnormal numbers, infinities and NaN.
    bool round(double number) noexcept;
};

} // namespace Zyr
