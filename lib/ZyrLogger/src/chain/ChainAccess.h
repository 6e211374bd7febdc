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

/// How threads that log reach a logger's chain without a lock. Open while the chain is complete; closed for good before
/// it ends, whoever ends it. Shared by the logger and its chain.
class ChainAccess
{
public:
    // What isEnabled() compares priorities with, beside the logger's level.
    static constexpr int never = std::numeric_limits<int>::min();
    static constexpr int always = std::numeric_limits<int>::max();

    /// Without effect after close().
    void set(Poco::Logger* logger, int enabledPriority) noexcept;

    /// Caches the logger's level, as a use has just read it. True if that changed it: read it again, since set() may
    /// have got a newer one meanwhile.
    bool noteLevel(int level) noexcept
    {
        int known = enabled.load(std::memory_order_relaxed);
        return known != level && known != never && known != always && enabled.compare_exchange_strong(known, level);
    }
    const std::atomic<int>& enabledPriority() const noexcept { return enabled; }

    /// From now on no use finds the chain.
    void close() noexcept;

    using Clock = std::chrono::steady_clock;
    /// Waits for the uses by other threads that found it before; not for ever, since one may hang. Returns whether none
    /// is left.
    bool waitForUses(Clock::time_point limit = Clock::now() + maxWait) const noexcept;

    /// How long: more than a record waits for room in a queue whose store hangs.
    static constexpr std::chrono::seconds maxWait{5};

    /// The uses that were under way at one moment.
    class Users
    {
        friend class ChainAccess;
        std::vector<std::pair<const ReaderSlot*, unsigned>> slots; ///< with ReaderSlot::uses at that moment
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
    std::atomic<unsigned> usesWithoutSlot = 0; ///< by threads whose slot shows another chain, or that have none
};

/// One thread's use of a chain: the logger that it found stays valid while this lives.
class ChainUse
{
public:
    explicit ChainUse(ChainAccess& access) noexcept
        : used(&access)
        , slot(ReaderSlot::mine)
    {
        // seq_cst like close(): the mark goes up before `closed` is read, so a use sees `closed` or is waited for.
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

    /// Null where there is no chain to log to. Ask again after code of the application has run: the thread itself may
    /// have ended the chain there, or another one that waited for this use as long as maxWait.
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
