#pragma once

namespace Zyr {

/// Marks the upper parts of the vector registers unused, whoever left something there. Called where much code of our
/// own begins; it takes less than a nanosecond.
///
/// What compilers make for every x86-64 are SSE instructions, which leave the upper parts as they are and take longer
/// while something is in them. Code for AVX may leave something there, the application's or a library's; the C
/// library's functions for AVX-512 do not clean up either. doc/performance.md has the figures.
inline void cleanVectorRegisters() noexcept
{
#if defined(__x86_64__) && !defined(__AVX__) // with which the compiler makes no SSE instructions, and cleans up itself
    if (__builtin_cpu_supports("avx"))
        asm volatile("vzeroupper"); // no clobbers: the compiler keeps nothing in the upper parts
#endif
}

} // namespace Zyr
