#pragma once

#include "text/NumberSymbols.h"

namespace Zyr {

struct SixDigits;

/// Writes numbers with a locale's symbols. What it returns is the end of what it wrote.
class NumberWriter
{
public:
    /// Takes over a locale's symbols. False where they do not fit in here.
    bool use(const QLocale& locale);

    /// How many bytes a number may overwrite at most; many more than it takes.
    std::size_t room() const noexcept { return mostBytes; }

    char* write(quint64 number, bool negative, char* to) const noexcept;

    /// With precision 6, as 'g' has it.
    char* write(const SixDigits& number, bool negative, char* to) const noexcept;

    char* writeZero(char* to) const noexcept;

private:
    char* writeDigits(const char* ascii, int count, char* to) const noexcept;
    char* writeGrouped(const char* ascii, int count, char* to) const noexcept;
    char* writeExponent(int exponent, char* to) const noexcept;

    NumberSymbols symbols;
    std::size_t mostBytes = 0;
};

} // namespace Zyr
