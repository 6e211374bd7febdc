#pragma once

#include <ZyrLogger/Logger.h>

#include "chain/ChainAccess.h"
#include "chain/LogFileChannel.h"
#include "logger/LoggerRules.h"

#include <Poco/AutoPtr.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace Zyr {

/// How the calls of several threads on one logger meet, and what all loggers of the process have in common.
///
/// Two locks, taken in this order: `reload` makes settings loads and location calls take turns; `guard` is only ever
/// taken for the few instructions that copy or change fields. Neither is held while listeners run or records are
/// written, and only `reload` while settings are read.
///
/// A thread that logs takes no lock: it uses the chain through `access` and goes by the rules that are in force then.
/// Whoever else uses a link of the chain takes a reference to it under `guard` (share()). So a shutdown of POCO's
/// logging, which releases the chain, cannot pull it away from either.
class ZYRLOGGER_NO_EXPORT Logger::State
{
public:
    explicit State(Logger& itsLogger);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// A counted reference to the link that the logger's field `link` points to; null when there is none or the chain
    /// is out of reach.
    template <typename Link>
    Poco::AutoPtr<Link> share(Link* const& link)
    {
        if (isChainGone())
            return nullptr;
        const std::lock_guard lock(guard);
        return shareLocked(link);
    }

    /// share() of the file channel, as what it is.
    Poco::AutoPtr<LogFileChannel> shareFile() { return share(logger.fileChannel).unsafeCast<LogFileChannel>(); }

    /// The same after `make` has made the link, if there was none.
    template <typename Link, typename Make>
    Poco::AutoPtr<Link> link(Link*& field, Make make)
    {
        if (isChainGone())
            return nullptr;
        const std::lock_guard lock(guard);
        if (!field && !isChainGone()) {
            field = make();
            publishChain();
        }
        return shareLocked(field);
    }

    /// share() for a caller that holds `guard`.
    template <typename Link>
    Poco::AutoPtr<Link> shareLocked(Link* link) const
    {
        return Poco::AutoPtr<Link>(isChainGone() ? nullptr : link, true);
    }

    /// Whether the chain must not be touched, since the pointers to it may dangle: after a shutdown, and when the
    /// application itself released it through POCO. Takes no lock.
    bool isChainGone() const noexcept { return isShutDown() || access->isReleased(); }

    /// Whether entries can be written. Takes no lock.
    bool isUsable() const noexcept { return hasFile.load(std::memory_order_acquire) && !isChainGone(); }

    /// Counts a record that came to no line for want of memory as lost, if the level lets its priority through.
    void loseRecord(int priority);

    /// Valid for the calling thread during its use of the chain.
    const Rules& rules() const noexcept { return *inForce.load(); }

    /// Lets the threads that log see what has changed. The caller holds `guard`.
    void publishChain() noexcept;
    /// The same. Where it throws, nothing has changed.
    void publishRules();

    /// Adds what rules are made of, or throws and does not. The caller holds `guard`.
    template <typename Item>
    void append(const Item& item, QList<Item>& list)
    {
        list.append(item);
        try {
            publishRules();
        } catch (...) {
            list.removeLast();
            throw;
        }
    }

    /// Whether POCO's logging counts as shut down, for every logger of the process.
    static bool isShutDown() noexcept;

    /// Makes it count as shut down. When it returns, no logger is about to use its chain without a reference of its
    /// own.
    static void markShutDown();

    /// The same, and shuts POCO's logging down after every logger's queue was written.
    static void shutPocoDown();

    /// Before the chain is released: waits for the threads that are using it, after nobody can begin to. One that hangs
    /// keeps it for good.
    void keepUsedChain(ChainAccess::Clock::time_point limit = ChainAccess::Clock::now() + ChainAccess::patience);

    /// Calls POCO's registry, which has a lock that a forked child must not find locked.
    template <typename Call>
    static decltype(auto) callRegistry(Call call)
    {
        const std::lock_guard lock(registry);
        return call();
    }

    /// Calls what makes the main logger, which a fork does not interrupt: a child would wait for the rest of it for
    /// ever.
    template <typename Call>
    static void callWithoutFork(Call call)
    {
        const std::lock_guard lock(birth);
        call();
    }

    /// Whether this process is a fork of the one that made the logger. The chain is kept for good there, since POCO's
    /// registry may be locked by a thread that is not there.
    bool isInherited() const noexcept;

    /// Whether any thread is inside `listener`. The caller holds `guard`.
    bool isInside(const LogListener* listener) const;

    const std::shared_ptr<ChainAccess> access = std::make_shared<ChainAccess>();

    std::mutex guard;            ///< for the chain pointers, filters, repeat settings and listeners
    std::recursive_mutex reload; ///< recursive: a message handler of Qt may call back while settings are read

    std::atomic<bool> isUnwatched = false; ///< the settings file could not be watched at the last attempt

    std::condition_variable listenerLeft; ///< with `guard`
    std::list<const LogListener*> callsUnderWay;

    /// Names of the source files that the records in pendingMessages point to, in the same order; guarded by `mutex`
    /// like these.
    QList<QByteArray> pendingFiles;

private:
    class ProcessLife;

    static std::vector<State*>& living();
    static std::vector<std::shared_ptr<ChainAccess>> livingAccesses();
    static void beforeFork();
    static void afterFork() noexcept; // NOLINT(bugprone-exception-escape): unlocking throws nothing
    static void afterForkInChild() noexcept;
    void lockAll();
    void unlockAll();
    void renewInChild();
    void freeFormerRules() noexcept;

    static const int forkHandlers;
    static std::mutex birth;
    static std::mutex registry;

    std::atomic<bool> hasFile = false;
    std::atomic<const Rules*> inForce = nullptr;
    std::unique_ptr<const Rules> ownedRules; ///< those in force
    struct FormerRules
    {
        std::unique_ptr<const Rules> rules;
        std::optional<ChainAccess::Users> users; ///< who may be going by them
    };
    std::list<FormerRules> formerRules;

    Poco::AutoPtr<LogFileChannel> lockedFile; ///< by lockAll(); the chain may count as gone before it is unlocked
    Logger& logger;
    const unsigned forks; ///< that lay between the first logger's process and the one that made this logger
};

} // namespace Zyr
