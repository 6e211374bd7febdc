#pragma once

#include "chain/ReaderSlot.h"

#include <atomic>
#include <chrono>
#include <limits>
#include <utility>
#include <vector>

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
    static constexpr int never = std::numeric_limits<int>::min();
    static constexpr int always = std::numeric_limits<int>::max();

    /// Without effect after close().
    void set(Poco::Logger* logger, int enabledPriority) noexcept;

    /// What a use has read of the logger's level just now. True when that was news: then it is to be read again, since
    /// what set() was told meanwhile may be newer.
    bool noteLevel(int level) noexcept
    {
        int known = enabled.load(std::memory_order_relaxed);
        return known != level && known != never && known != always && enabled.compare_exchange_strong(known, level);
    }
    const std::atomic<int>& enabledPriority() const noexcept { return enabled; }

    /// From now on no use finds the chain.
    void close() noexcept;
    /// Waits for the uses by other threads that found it before; not for ever, since one may hang. Returns whether none
    /// is left.
    using Clock = std::chrono::steady_clock;
    bool waitForUses(Clock::time_point limit = Clock::now() + patience) const noexcept;

    /// Longer than a record waits for room in a queue whose store hangs.
    static constexpr std::chrono::seconds patience{5};

    /// Those who were in a use at one moment.
    class Users
    {
        friend class ChainAccess;
        std::vector<std::pair<const ReaderSlot*, unsigned>> slots; ///< and which of its uses it was
        bool withoutSlot = false;
    };
    Users users() const;
    bool haveLeft(const Users& then) const noexcept;

    /// The chain has ended: pointers to it dangle.
    void markReleased() noexcept { released.store(true, std::memory_order_release); }
    bool isReleased() const noexcept { return released.load(std::memory_order_acquire); }

    void afterForkInChild() noexcept;

private:
    friend class ChainUse;

    bool isInUseByOthers() const noexcept;

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
            slot->uses.store(slot->uses.load(std::memory_order_relaxed) + 1, std::memory_order_release);
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

    /// Null where there is no chain to log to. To be asked again after code of the application ran: the thread itself
    /// may have ended the chain there, or others after they waited long enough.
    Poco::Logger* logger() const noexcept
    {
        return found && !used->closed.load(std::memory_order_acquire) ? found : nullptr;
    }

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
