#pragma once

#include <atomic>

namespace Zyr {

/// Where a thread shows which chain it is using. Written by that thread alone, so that no line of memory goes to and
/// fro between threads that log. Slots are never freed: they serve other threads when theirs have ended.
struct alignas(64) ReaderSlot
{
    std::atomic<const void*> inUse = nullptr;
    std::atomic<unsigned> uses = 0; ///< so far; one more before each is shown
    std::atomic<bool> taken = true;
    ReaderSlot* next = nullptr;

    /// The calling thread's; null where it has none. Of the model that takes one instruction, as all that is kept per
    /// thread here: there is room for it also where the library is loaded while the program runs.
    [[gnu::tls_model("initial-exec")]] static thread_local constinit ReaderSlot* mine;

    static ReaderSlot* first() noexcept;

    /// Gives the calling thread a slot, if there is memory for one.
    static void take() noexcept;
    /// Before the calling thread ends.
    static void giveBack() noexcept;

    /// In the child of a fork, where the other threads are not there.
    static void afterForkInChild() noexcept;
};

} // namespace Zyr
