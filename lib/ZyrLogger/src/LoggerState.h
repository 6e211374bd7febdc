#pragma once

#include <ZyrLogger/Logger.h>

#include <Poco/AutoPtr.h>

#include <condition_variable>
#include <list>
#include <mutex>
#include <vector>

namespace Zyr {

/// How the calls of several threads on one logger meet.
///
/// Two locks, taken in this order: `reload` makes settings loads and location calls take turns; `guard` is the one that
/// logging takes, only ever for the few instructions that copy or change fields. Neither is held while listeners run or
/// records are written, and only `reload` while settings are read.
///
/// A thread that uses a link of the chain takes a reference to it under `guard` (share()), so that a shutdown of POCO's
/// logging, which releases the chain, cannot pull it away.
class ZYRLOGGER_NO_EXPORT Logger::State
{
public:
    State();
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

    /// The same after `make` has made the link, if there was none.
    template <typename Link, typename Make>
    Poco::AutoPtr<Link> link(Link*& field, Make make)
    {
        if (isChainGone())
            return nullptr;
        const std::lock_guard lock(guard);
        if (!field && !isShutDown())
            field = make();
        return shareLocked(field);
    }

    /// share() for a caller that holds `guard`.
    template <typename Link>
    static Poco::AutoPtr<Link> shareLocked(Link* link)
    {
        return Poco::AutoPtr<Link>(isShutDown() ? nullptr : link, true);
    }

    /// Whether the chain must not be touched: the pointers to it may dangle after a shutdown, and in a forked child it
    /// has no worker thread and perhaps a lock that nobody will ever release. Takes no lock.
    bool isChainGone() const noexcept { return isShutDown() || isInherited(); }

    /// Whether this library has shut POCO's logging down.
    static bool isShutDown() noexcept;

    /// Marks POCO's logging as shut down, for every logger of the process.
    static void markShutDown() noexcept;

    /// The same, then waits until no logger is about to use its chain, and shuts POCO's logging down.
    static void shutPocoDown();

    /// Whether this process is a fork of the one that made the logger.
    bool isInherited() const noexcept;

    class ListenerCall;

    /// Whether any thread is inside `listener`. The caller holds `guard`.
    bool isInside(const LogListener* listener) const;

    /// Whether the calling thread is inside any listener of any logger.
    static bool isInsideAnyListener() noexcept;

    std::mutex guard;            ///< for the chain pointers, filters, repeat settings and listeners
    std::recursive_mutex reload; ///< recursive: a message handler of Qt may call back while settings are read

    std::condition_variable listenerLeft; ///< with `guard`
    std::list<const LogListener*> callsUnderWay;

    /// Names of the source files that the records in pendingMessages point to, in the same order; guarded by `mutex`
    /// like these.
    QList<QByteArray> pendingFiles;

    /// What became of the latest settings load; guarded by `reload`.
    enum class Load { Applied, Refused, FileNotOpened } latestLoad = Load::Applied;

private:
    static std::vector<State*>& living();

    const unsigned forks; ///< that lay between the first logger's process and the one that made this logger
};

/// One record's visit to the next listener that has not had it. The calling thread counts as being inside that listener
/// for as long as this object lives.
class Logger::State::ListenerCall
{
public:
    /// Picks the first of `registered` that is not in `served`, and adds it there. Going by who was served instead of
    /// by index keeps a listener that unregisters itself, or others, from making the record miss somebody.
    ListenerCall(State& loggerState, const QList<LogListener*>& registered, std::vector<const LogListener*>& served);
    ~ListenerCall();
    ListenerCall(const ListenerCall&) = delete;
    ListenerCall& operator=(const ListenerCall&) = delete;

    /// Null when every listener has been served.
    LogListener* listener() const noexcept { return current; }

    bool isStillRegistered() const;

private:
    State& state;
    const QList<LogListener*>& registeredListeners; ///< guarded by the state's `guard`
    LogListener* current = nullptr;
    std::list<const LogListener*>::iterator entry;
};

/// The settings of repeat suppression at one moment.
struct Logger::RepeatLimits
{
    quint32 remembered; ///< how many distinct records
    quint32 repeats;    ///< of each, before a summary is due
};

} // namespace Zyr
