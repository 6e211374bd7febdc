#pragma once

namespace Zyr {

/// Clears the upper parts of the vector registers (vzeroupper). Called where a long stretch of the library's code
/// begins; it takes less than a nanosecond.
///
/// For x86-64 in general, compilers emit SSE instructions, which keep the upper parts and are slower while those are
/// in use. AVX code of the application or of a library may leave them in use; the C library's AVX-512 functions do not
/// clean up either. doc/performance.md has the figures.
inline void cleanVectorRegisters() noexcept
{
#if defined(__x86_64__) && !defined(__AVX__) // with AVX the compiler emits no SSE instructions, and cleans up itself
    if (__builtin_cpu_supports("avx"))
        asm volatile("vzeroupper"); // no clobbers: the compiler keeps nothing in the upper parts
#endif
}

} // namespace Zyr
