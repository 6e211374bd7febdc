#pragma once

#include "base/LineBuffer.h"
#include "base/ShortCopy.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Zyr {

/// Writes fields to a line. Keeps room for all fixed fields that can follow, so that only texts check for it.
class FieldWriter
{
public:
    static constexpr std::size_t copiedAtOnce = 16;  ///< bytes that must be readable from the start of each literal
    static constexpr std::size_t maxFixedField = 20; ///< a number of 64 bits

    /// `sizeOfFixed`: of all literals and fixed fields together, plus copiedAtOnce.
    FieldWriter(LineBuffer& target, std::size_t sizeOfFixed)
        : line(target)
        , fixedSize(sizeOfFixed)
        , at(line.room(fixedSize))
    {
    }

    /// Most literals are short: one copy of constant size is enough.
    void literal(const char* text, std::size_t size) noexcept
    {
        std::memcpy(at, text, copiedAtOnce);
        if (size > copiedAtOnce)
            copyShort(at + copiedAtOnce, text + copiedAtOnce, size - copiedAtOnce);
        at += size;
    }

    void fixed(std::string_view text) noexcept
    {
        copyShort(at, text.data(), text.size());
        at += text.size();
    }

    void text(std::string_view text)
    {
        reserve(text.size());
        fixed(text);
    }

    void padded(std::string_view text, std::size_t width)
    {
        if (width == 0 || width == text.size())
            return this->text(text);
        if (text.size() > width) // the end tells names of the same group apart
            return this->text(text.substr(text.size() - width));
        reserve(width);
        fixed(text);
        at = std::fill_n(at, width - text.size(), ' ');
    }

    template <typename Number>
    void number(Number number) noexcept
    {
        at = std::to_chars(at, at + maxFixedField, number).ptr;
    }

    void digits(const char (&pair)[2]) noexcept
    {
        std::memcpy(at, pair, 2);
        at += 2;
    }

    void digitsWithoutZero(const char (&pair)[2]) noexcept
    {
        *at = pair[0];
        at += pair[0] != '0';
        *at++ = pair[1];
    }

    void digitsWithSpace(const char (&pair)[2]) noexcept
    {
        *at++ = pair[0] == '0' ? ' ' : pair[0];
        *at++ = pair[1];
    }

    void fraction(std::uint32_t number, int size) noexcept
    {
        for (int digit = size; digit-- > 0; number /= 10)
            at[digit] = char('0' + number % 10);
        at += size;
    }

    void finish() noexcept { line.extendTo(at); }

    /// Bytes in the line so far.
    std::size_t size() const noexcept { return std::size_t(at - line.view().data()); }

private:
    void reserve(std::size_t size)
    {
        line.extendTo(at);
        at = line.room(size + fixedSize);
    }

    LineBuffer& line;
    const std::size_t fixedSize;
    char* at;
};

} // namespace Zyr
