#pragma once

#include <atomic>

namespace Zyr {

/// Where a thread shows which chain it is using: a cache line of its own, so that none bounces between threads that
/// log. Slots are never freed; another thread takes one over when its own has ended.
struct alignas(64) ReaderSlot
{
    std::atomic<const void*> inUse = nullptr;
    std::atomic<unsigned> uses = 0; ///< so far, the one that `inUse` shows included
    std::atomic<bool> isTaken = true;
    ReaderSlot* next = nullptr;

    /// The calling thread's; null where it has none. initial-exec TLS, as all that is kept per thread here: one
    /// instruction; fits glibc's static surplus under dlopen().
    [[gnu::tls_model("initial-exec")]] static thread_local constinit ReaderSlot* mine;

    static ReaderSlot* first() noexcept;

    /// Gives the calling thread a slot, if there is memory for one.
    static void acquire() noexcept;
    /// Before the calling thread ends.
    static void release() noexcept;

    /// In the child of a fork, where the other threads are not there.
    static void afterForkInChild() noexcept;
};

} // namespace Zyr
