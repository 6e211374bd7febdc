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
    char digits[16]; // ASCII: the six, with the trailing zeroes that `count` leaves out; the rest is for reading past
                     // them
    int count;
    int exponent; // of ten, for the first digit

    /// False, with nothing of use set, where only exact arithmetic tells how to round, and for zero, numbers below the
    /// normal ones, infinities and what is no number. A sign is left out of account.
    bool round(double number) noexcept;
};

} // namespace Zyr
