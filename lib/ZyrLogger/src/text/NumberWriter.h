#pragma once

#include "text/NumberSymbols.h"

namespace Zyr {

struct SixDigits;

/// Writes numbers with a locale's symbols. The functions return the end of what they wrote.
class NumberWriter
{
public:
    /// Adopts a locale's symbols. False where they are not supported.
    bool use(const QLocale& locale);

    /// Max. bytes that writing a number may overwrite; far more than the number takes.
    std::size_t room() const noexcept { return maxBytes; }

    char* write(quint64 number, bool negative, char* to) const noexcept;

    /// As printf's "%g" does.
    char* write(const SixDigits& number, bool negative, char* to) const noexcept;

    char* writeZero(char* to) const noexcept;

private:
    char* writeDigits(const char* ascii, int count, char* to) const noexcept;
    char* writeGrouped(const char* ascii, int count, char* to) const noexcept;
    char* writeExponent(int exponent, char* to) const noexcept;

    NumberSymbols symbols;
    std::size_t maxBytes = 0;
};

} // namespace Zyr
