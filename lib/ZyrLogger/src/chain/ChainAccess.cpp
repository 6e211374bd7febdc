#include "chain/ChainAccess.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace Zyr {

using namespace std::chrono_literals;

namespace {

/// Longer than a record waits for room in a queue whose store hangs.
constexpr auto patience = 5s;

} // namespace

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

bool ChainAccess::waitForUses() const noexcept
{
    const auto end = std::chrono::steady_clock::now() + patience;
    for (auto pause = 10us; isInUse(ByOthers); pause = std::min<decltype(pause)>(2 * pause, 1ms)) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

bool ChainAccess::isInUse(By thread) const noexcept
{
    if (usesWithoutSlot.load() > 0)
        return true;
    for (const ReaderSlot* slot = ReaderSlot::first(); slot; slot = slot->next) {
        if (slot->inUse.load() == this && (thread == ByAny || slot != ReaderSlot::mine))
            return true;
    }
    return false;
}

} // namespace Zyr
