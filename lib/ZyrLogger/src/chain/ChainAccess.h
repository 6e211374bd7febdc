#pragma once

#include "chain/ReaderSlot.h"

#include <atomic>

namespace Poco {
class Logger;
}

namespace Zyr {

/// The way of the threads that log to a logger's chain, without a lock: open while the chain is complete, closed for
/// good before it ends, whoever ends it. Shared by the logger and its chain.
class ChainAccess
{
public:
    // What isEnabled() compares priorities with, beside the logger's level.
    static constexpr int never = -1;
    static constexpr int always = 1000;

    /// Without effect after close().
    void set(Poco::Logger* logger, int enabledPriority) noexcept;

    /// What a use has read of the logger's level just now.
    void noteLevel(int level) noexcept
    {
        int known = enabled.load(std::memory_order_relaxed);
        if (known != level && known != never && known != always)
            enabled.compare_exchange_strong(known, level, std::memory_order_relaxed);
    }
    const std::atomic<int>& enabledPriority() const noexcept { return enabled; }

    /// From now on no use finds the chain.
    void close() noexcept;
    /// Waits for the uses by other threads that found it before; not for ever, since one may hang. Returns whether none
    /// is left.
    bool waitForUses() const noexcept;
    enum By { ByAny, ByOthers };
    bool isInUse(By thread) const noexcept;

    /// The chain has ended: pointers to it dangle.
    void markReleased() noexcept { released.store(true, std::memory_order_release); }
    bool isReleased() const noexcept { return released.load(std::memory_order_acquire); }

    void afterForkInChild() noexcept { usesWithoutSlot = 0; }

private:
    friend class ChainUse;

    std::atomic<Poco::Logger*> target = nullptr;
    std::atomic<int> enabled = always;
    std::atomic<bool> closed = false;
    std::atomic<bool> released = false;
    std::atomic<unsigned> usesWithoutSlot = 0; ///< of threads that use another chain already, or are ending
};

/// One thread's use of a chain: while it lives, what it found stays.
class ChainUse
{
public:
    explicit ChainUse(ChainAccess& access) noexcept
        : used(&access)
        , slot(ReaderSlot::mine)
    {
        // In one order with close(), as all accesses here that do not name another: either it is seen here that the
        // way is closed, or seen there that somebody is on it.
        if (slot && !slot->inUse.load(std::memory_order_relaxed)) {
            slot->inUse.store(used);
        } else {
            slot = nullptr;
            ++used->usesWithoutSlot;
        }
        found = used->closed.load() ? nullptr : used->target.load(std::memory_order_acquire);
    }
    ~ChainUse() { leave(); }
    ChainUse(const ChainUse&) = delete;
    ChainUse& operator=(const ChainUse&) = delete;

    /// Null where there is no chain to log to.
    Poco::Logger* logger() const noexcept { return found; }

    /// Ends the use early.
    void leave() noexcept
    {
        if (slot)
            slot->inUse.store(nullptr, std::memory_order_release);
        else if (used)
            --used->usesWithoutSlot;
        slot = nullptr;
        used = nullptr;
    }

private:
    ChainAccess* used;
    ReaderSlot* slot;
    Poco::Logger* found;
};

} // namespace Zyr
