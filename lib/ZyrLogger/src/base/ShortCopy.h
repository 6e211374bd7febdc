#pragma once

#include <cstddef>
#include <cstring>

namespace Zyr {

/// Copies as std::memcpy() does, reading and writing no byte more, but without a call for what lines are made of: the
/// call costs more than the copy, and on processors with AVX-512 may slow down what follows, see VectorRegisters.h.
inline void copyShort(char* to, const char* from, std::size_t size) noexcept
{
    // The first and the last bytes, which overlap where there are not twice as many.
    const auto copyEnds = [=](std::size_t bytes) {
        std::memcpy(to, from, bytes);
        std::memcpy(to + size - bytes, from + size - bytes, bytes);
    };
    constexpr std::size_t block = 16;
    constexpr std::size_t maxShort = 512; // the more bytes, the less a call matters
    if (size > maxShort) {
        std::memcpy(to, from, size);
    } else if (size >= block) {
        for (std::size_t done = 0; done < size - block; done += block)
            std::memcpy(to + done, from + done, block);
        std::memcpy(to + size - block, from + size - block, block);
    } else if (size >= 8) {
        copyEnds(8);
    } else if (size >= 4) {
        copyEnds(4);
    } else if (size > 0) {
        to[0] = from[0];
        to[size / 2] = from[size / 2];
        to[size - 1] = from[size - 1];
    }
}

} // namespace Zyr
