// The list of slots, which threads take over from one another.

#include "chain/ReaderSlot.h"

#include <new>
#include <utility>

namespace Zyr {

namespace {

constinit std::atomic<ReaderSlot*> slots = nullptr;

} // namespace

constinit thread_local ReaderSlot* ReaderSlot::mine = nullptr;

ReaderSlot* ReaderSlot::first() noexcept
{
    return slots.load(); // seq_cst: the thread of a slot that is missed here sees what came before, as `closed`
}

void ReaderSlot::acquire() noexcept
{
    for (ReaderSlot* slot = first(); slot; slot = slot->next) {
        if (!slot->isTaken.load(std::memory_order_relaxed) &&
            !slot->isTaken.exchange(true, std::memory_order_acquire)) {
            mine = slot;
            return;
        }
    }
    auto* const made = new (std::nothrow) ReaderSlot;
    if (!made)
        return;
    made->next = slots.load();
    while (!slots.compare_exchange_weak(made->next, made)) {
    }
    mine = made;
}

void ReaderSlot::release() noexcept
{
    if (ReaderSlot* const slot = std::exchange(mine, nullptr)) {
        slot->inUse.store(nullptr, std::memory_order_release);
        slot->isTaken.store(false, std::memory_order_release);
    }
}

void ReaderSlot::afterForkInChild() noexcept
{
    for (ReaderSlot* slot = first(); slot; slot = slot->next) {
        if (slot == mine)
            continue;
        slot->inUse = nullptr;
        slot->isTaken = false;
    }
}

} // namespace Zyr
