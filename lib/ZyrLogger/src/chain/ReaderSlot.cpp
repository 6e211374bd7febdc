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
    return slots.load(); // in one order with the marks in the slots
}

void ReaderSlot::take() noexcept
{
    for (ReaderSlot* slot = first(); slot; slot = slot->next) {
        if (!slot->taken.load(std::memory_order_relaxed) && !slot->taken.exchange(true, std::memory_order_acquire)) {
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

void ReaderSlot::giveBack() noexcept
{
    if (ReaderSlot* const slot = std::exchange(mine, nullptr)) {
        slot->inUse.store(nullptr, std::memory_order_release);
        slot->taken.store(false, std::memory_order_release);
    }
}

void ReaderSlot::afterForkInChild() noexcept
{
    for (ReaderSlot* slot = first(); slot; slot = slot->next) {
        if (slot == mine)
            continue;
        slot->inUse = nullptr;
        slot->taken = false;
    }
}

} // namespace Zyr
