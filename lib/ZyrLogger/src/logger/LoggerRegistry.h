// What the loggers of the process have in common: the list of them, fork(), and the shutdown of POCO's logging.

#pragma once

#include "base/Mutex.h"

#include <QtCore/qglobal.h>

#include <memory>
#include <vector>

namespace Zyr {

class ChainAccess;
class LoggerPrivate;

/// The loggers that live, what happens to them when the process forks, and when its logging ends.
///
/// **Fork.** A child has the forking thread alone, and every lock as it was at that moment. So the handlers see to it
/// that no lock that a child needs is copied while another thread is inside, or make it anew.
///
/// - Before: beforeFork() takes pocoRegistryMutex, so that POCO's own lock is free. It does so first: who has that
///   mutex waits for POCO's lock, under which the application may have a channel end that logs, and so wants any of the
///   others. Then constructionMutex and listMutex, so that the main logger is not half made and none half listed; then
///   of each logger Logger::mutex, the lock of its fields, its file channel's and its writer's; last the list of open
///   files, which code under the writers' locks takes. ZyrTools registers its handlers at the first listener, normally
///   later than these: they run earlier here and later afterwards, and hold the watcher's lock and that of QSettings.
/// - In the parent: afterFork() releases in the opposite order.
/// - In the child: first its files are closed, so that their locks stay the parent's; then standard output, the time
///   zone and the calling thread's record are made usable again; then each logger gets a new writer with an empty
///   queue, forgets its parent's repeats, and gets new locks where the old ones may have been held for long: that of
///   loads, which may wait for the file system, and Logger::mutex, which knows its owner by number.
///
/// A lock that is held while the application's code or a system call runs is not waited for before: a fork would hang.
/// Nobody takes such a one in the child before it is made anew; a main logger that was just being started stays as it
/// is there (LoggerPrivate::isInherited()). The child never releases a chain, since a thread that uses POCO without
/// this library may have held POCO's lock.
///
/// **Shutdown.** shutPocoDown(), called by Logger::flushFinal() and at the end of the main logger:
///
/// 1. takes a reference to every queue and file, so that no chain ends while POCO holds its lock;
/// 2. sets the flag, then closes every ChainAccess under the lock of that logger's fields: whoever asked before the
///    flag has a reference when that lock is free, whoever asks later finds no chain;
/// 3. waits for the uses under way, of all loggers together ChainAccess::maxWait, with no lock, since they may take
/// any;
/// 4. keeps for good the chains that are still in use;
/// 5. has every queue written, or given up where the store does not take it;
/// 6. calls Poco::Logger::shutdown(), in a forked child not, and then drops the references, which ends the chains.
///
/// The main logger's end sets the flag also where its own chain was never complete, and so does the end of the static
/// object that the first logger brings, for loggers that nobody destroys. A logger made later loads and watches
/// nothing; it and the others print what is logged as invalid, and touch no chain.
///
/// **Locks**, outermost first. A thread may hold several, in this order only; those of one line never together, except
/// that a fork holds every one that it takes.
///
/// 1. QtSettings' lock of loads: a load on the watcher's thread, so all below.
/// 2. startMutex (MainLogger.cpp): the first load of the main logger's settings, so all below.
/// 3. LoggerPrivate::reloadMutex: a load's or a location call's changes, so 4 and those from 8 on. It is recursive, and
///    only as long as settings are read may the application run in it: Qt's message handler, which may log, and so make
///    the main logger. 2 and 6 then come behind that of another logger, which the main logger's start never takes.
/// 4. pocoRegistryMutex: POCO's lock of its registry; the lock of the fields, for the entry just made there.
/// 5. POCO's lock, where the application has POCO release a channel of its own or a logger: what that logs, and the
///    writer's lock, since the chain ends under POCO's. (This library keeps references meanwhile.) Such a channel must
///    not make a logger there, which would take 4.
/// 6. constructionMutex: the main logger's construction, with listMutex.
/// 7. listMutex: the fields' lock of each logger, one after the other.
/// 8. Logger::mutex (POCO's): nothing. Only a fork goes on to the next with it.
/// 9. LoggerChain::fieldsMutex: making a link takes the writer's lock.
/// 10. LogFileChannel's lock of its properties: the writer's.
/// 11. LogWriter's lock: ForkClosedFile's list.
/// 12. ForkClosedFile's list, StandardOutput, LinePatterns' lock for writers: nothing.
///
/// Listeners are called and records are written with none of 4 and 6 to 12.
///
/// ZyrTools has three more, which the first load takes under 3: the watcher's for walks, its one for clients, and the
/// one with which QSettings objects are made and destroyed, but not read: then Qt's message handler may run. A fork
/// takes the last two first, where a listener was used before.
class LoggerRegistry
{
public:
    /// Adds a logger that has its rules. The first one brings what ends logging at the end of the process.
    static void add(LoggerPrivate& logger);
    static void remove(LoggerPrivate& logger);

    /// Whether POCO's logging counts as shut down, for every logger of the process. Takes no lock.
    static bool isShutDown() noexcept;

    /// Makes it count as shut down. When it returns, no logger is about to use its chain without a reference of its
    /// own.
    static void markShutDown();

    /// The same, and shuts POCO's logging down after every logger's queue was written.
    static void shutPocoDown();

    /// How many forks lie between the first logger's process and this one.
    static unsigned forksSoFar() noexcept;

    /// Calls POCO's registry, which has a lock that a forked child must not find locked.
    template <typename Call>
    static void callPocoRegistry(Call call) ZYR_EXCLUDES(pocoRegistryMutex)
    {
        const Guard guard(pocoRegistryMutex);
        call();
    }

    /// Calls what makes the main logger, which a fork does not interrupt: a child would wait for the rest of it for
    /// ever.
    template <typename Call>
    static void callWithoutFork(Call call) ZYR_EXCLUDES(constructionMutex)
    {
        const Guard guard(constructionMutex);
        call();
    }

private:
    class ProcessLife;

    static std::vector<LoggerPrivate*>& loggers() ZYR_REQUIRES(listMutex);
    static std::vector<std::shared_ptr<ChainAccess>> accesses() ZYR_EXCLUDES(listMutex);

    // In functions that the check of locks cannot follow.
    static void beforeFork() ZYR_UNCHECKED_LOCKING;
    // NOLINTNEXTLINE(bugprone-exception-escape): unlocking throws nothing
    static void afterFork() noexcept ZYR_UNCHECKED_LOCKING;
    static void afterForkInChild() noexcept ZYR_UNCHECKED_LOCKING;

    static const int forkHandlers;
    static Mutex pocoRegistryMutex; ///< for POCO's registry of loggers
    static Mutex constructionMutex; ///< for the main logger's object
    static Mutex listMutex;
};

} // namespace Zyr
