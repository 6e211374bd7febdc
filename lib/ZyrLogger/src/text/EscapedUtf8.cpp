// Converts and escapes UTF-16 by vectors: most texts are plain ASCII, which is copied as it is.

#include "text/EscapedUtf8.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Zyr {

namespace {

// The compilers' portable vectors, of 128 bits of UTF-16: the width that most processors handle at once.
constexpr std::ptrdiff_t blockSize = 8;
using Units = std::uint16_t __attribute__((vector_size(2 * blockSize)));
using Bytes = std::uint8_t __attribute__((vector_size(blockSize)));

constexpr std::ptrdiff_t pieceSize = 16 * blockSize; ///< units between two checks of the target's room
constexpr std::ptrdiff_t maxBytesPerUnit = 3;

/// The bit tricks below number the units from the lowest byte on.
constexpr bool takesBlocks = std::endian::native == std::endian::little;

template <typename T>
T load(const char16_t* from) noexcept
{
    T loaded;
    std::memcpy(&loaded, from, sizeof loaded);
    return loaded;
}

/// A partial block, filled up with NULs. Reads nothing beyond `count` units.
Units loadFew(const char16_t* from, std::ptrdiff_t count) noexcept
{
    std::uint64_t low, high = 0;
    if (count >= 4) {
        low = load<std::uint64_t>(from);
        const auto halfOfSurplus = 8 * (blockSize - count); // in two steps: shifting by 64 at once is undefined
        high = load<std::uint64_t>(from + count - 4) >> halfOfSurplus >> halfOfSurplus;
    } else {
        const auto unit = [from](std::ptrdiff_t index) { return std::uint64_t(from[index]) << (16 * index); };
        low = unit(0) | unit(count / 2) | unit(count - 1);
    }
    using Halves = std::uint64_t __attribute__((vector_size(sizeof(Units)))); // stays in registers
    return std::bit_cast<Units>(Halves{low, high});
}

/// A byte for each unit, the first one lowest.
std::uint64_t narrow(Units units) noexcept
{
    return std::bit_cast<std::uint64_t>(__builtin_convertvector(units, Bytes));
}

/// 0xff in the bytes of those units that are not printable ASCII or need an escape.
std::uint64_t specialsOf(Units units) noexcept
{
    constexpr std::uint16_t first = ' ';
    constexpr std::uint16_t count = 0x80 - first;
    return narrow(Units((units - first >= count) | (units == '%') | (units == '"') | (units == '\\')));
}

/// 0xff in the bytes of the first `count` units.
std::uint64_t firstOf(std::ptrdiff_t count) noexcept
{
    return ~std::uint64_t(0) >> (8 * (blockSize - count));
}

/// A character beyond ASCII; `mark` holds the prefix bits of its lead byte.
char* putCharacter(char32_t character, unsigned mark, int furtherBytes, char* to) noexcept
{
    *to++ = char(mark | character >> (6 * furtherBytes));
    while (furtherBytes-- > 0)
        *to++ = char(0x80 | (character >> (6 * furtherBytes) & 0x3f));
    return to;
}

char* putSpecialAscii(char16_t unit, char* to) noexcept
{
    if (unit == u'\r')
        return to;
    if (unit == u'"' || unit == u'\\')
        *to++ = '\\';
    *to++ = unit == u'\n' ? ' ' : char(unit);
    return to;
}

/// Writes one character and moves `from` behind it. Leaves `from` at a '%', a NUL or a lone surrogate.
char* putSpecial(const char16_t*& from, const char16_t* end, char* to) noexcept
{
    const char16_t unit = *from;
    if (unit < 0x80) {
        if (unit == u'%' || unit == u'\0')
            return to;
        ++from;
        return putSpecialAscii(unit, to);
    }
    if (unit >= 0xd800 && unit <= 0xdfff) {
        if (unit > 0xdbff || end - from < 2 || from[1] < 0xdc00 || from[1] > 0xdfff)
            return to;
        const auto character = char32_t(0x10000 + ((unit - 0xd800) << 10) + (from[1] - 0xdc00));
        from += 2;
        return putCharacter(character, 0xf0, 3, to);
    }
    ++from;
    return unit < 0x800 ? putCharacter(unit, 0xc0, 1, to) : putCharacter(unit, 0xe0, 2, to);
}

struct Block
{
    const char16_t* begin;
    const char16_t* end;
    std::uint64_t bytes;
    std::uint64_t specials;
};

/// Writes a block with special units. Leaves `from` at or behind its end, or where putSpecial() stops.
char* putMixed(const Block& block, const char16_t*& from, const char16_t* end, char* to) noexcept
{
    while (from < block.end) {
        const std::uint64_t specials = block.specials >> (8 * (from - block.begin));
        if (specials & 1) {
            const char16_t* const special = from;
            to = putSpecial(from, end, to);
            if (from == special)
                break;
        } else {
            const std::uint64_t bytes = block.bytes >> (8 * (from - block.begin));
            std::memcpy(to, &bytes, sizeof bytes); // valid up to the first special one
            const auto count = std::min<std::ptrdiff_t>(std::countr_zero(specials) / 8, block.end - from);
            from += count;
            to += count;
        }
    }
    return to;
}

} // namespace

const char16_t* appendEscapedUtf8(const char16_t* from, const char16_t* end, LineBuffer& to)
{
    while (from != end) {
        const char16_t* const pieceEnd = from + std::min(end - from, pieceSize);
        // One unit more for a surrogate pair across the piece's end, and one block more, as stores are whole blocks.
        char* out = to.room(std::size_t((pieceEnd - from + 1) * maxBytesPerUnit + blockSize));
        while (!takesBlocks && from < pieceEnd) {
            const char16_t* const before = from;
            out = putSpecial(from, end, out);
            if (from == before) {
                to.extendTo(out);
                return from;
            }
        }
        while (takesBlocks && from < pieceEnd) {
            const std::ptrdiff_t size = std::min(pieceEnd - from, blockSize);
            const Units units = size == blockSize ? load<Units>(from) : loadFew(from, size);
            const std::uint64_t bytes = narrow(units);
            const std::uint64_t specials = specialsOf(units) & firstOf(size);
            std::memcpy(out, &bytes, sizeof bytes); // valid up to the first special one
            if (specials == 0) {
                out += size;
                from += size;
                continue;
            }
            const Block block = {from, from + size, bytes, specials};
            const auto clean = std::countr_zero(specials) / 8;
            out += clean;
            from += clean;
            if (*from == u'%') {
                to.extendTo(out);
                return from;
            }
            out = putMixed(block, from, end, out);
            if (from < block.end) {
                to.extendTo(out);
                return from;
            }
        }
        to.extendTo(out);
    }
    return from;
}

} // namespace Zyr
