// How the uses of a chain are waited for, and distinguished from later ones.

#include "chain/ChainAccess.h"

#include <algorithm>
#include <thread>

namespace Zyr {

using namespace std::chrono_literals;

void ChainAccess::set(Poco::Logger* logger, int enabledPriority) noexcept
{
    target.store(logger, std::memory_order_release);
    enabled.store(enabledPriority);
    if (closed.load())
        enabled.store(never);
}

void ChainAccess::close() noexcept
{
    closed.store(true);
    enabled.store(never);
}

bool ChainAccess::waitForUses(Clock::time_point limit) const noexcept
{
    for (auto pause = 10us; isInUseByOthers(); pause = std::min<decltype(pause)>(2 * pause, 1ms)) {
        if (Clock::now() >= limit)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

bool ChainAccess::isInUseByOthers() const noexcept
{
    if (usesWithoutSlot.load() > 0)
        return true;
    for (const ReaderSlot* slot = ReaderSlot::first(); slot; slot = slot->next) {
        if (slot != ReaderSlot::mine && slot->inUse.load() == this)
            return true;
    }
    return false;
}

ChainAccess::Users ChainAccess::users() const
{
    Users now;
    now.withoutSlot = usesWithoutSlot.load() > 0;
    for (const ReaderSlot* slot = ReaderSlot::first(); slot; slot = slot->next) {
        if (slot->inUse.load() == this)
            now.slots.emplace_back(slot, slot->uses.load(std::memory_order_acquire));
    }
    return now;
}

bool ChainAccess::haveLeft(const Users& then) const noexcept
{
    if (then.withoutSlot && usesWithoutSlot.load() > 0)
        return false;
    return std::all_of(then.slots.begin(), then.slots.end(), [this](const auto& user) {
        const auto& [slot, use] = user;
        return slot->inUse.load() != this || slot->uses.load(std::memory_order_acquire) != use;
    });
}

/// Where the forking thread may be in a use without a slot itself, those of others go on counting: better to wait for
/// them in vain than not for its own.
void ChainAccess::afterForkInChild() noexcept
{
    if (ReaderSlot::mine && !ReaderSlot::mine->inUse.load(std::memory_order_relaxed))
        usesWithoutSlot = 0;
}

} // namespace Zyr
