// The inside of a logger: its parts by subject, and what several of them need.

#pragma once

#include "base/Mutex.h"
#include "logger/ListenerCalls.h"
#include "logger/LoggerChain.h"
#include "logger/LoggerRules.h"
#include "logger/RepeatSuppression.h"

#include <ZyrLogger/Logger.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace Zyr {

/// What Logger does behind its public functions. Its fields stay the public class's, under the names that are fixed.
///
/// A thread that logs takes no lock to reach the chain, but that of repeat suppression where that is on: it uses the
/// chain through `access` and goes by the current rules. LoggerRegistry.h has the order of the locks.
class LoggerPrivate
{
public:
    /// The logger's fields are there, and empty.
    explicit LoggerPrivate(Logger& itsLogger);
    ~LoggerPrivate();
    LoggerPrivate(const LoggerPrivate&) = delete;
    LoggerPrivate& operator=(const LoggerPrivate&) = delete;

    /// The part of construction that may call the application: the first load of the settings, and watching them.
    void start(const QString& logFileName);

    /// Tries again to watch the settings file, where that failed: before the application changes settings itself.
    void watchSettings();

    /// What the destructor does; the object is whole afterwards, without a chain.
    void retire() noexcept;

    static QString logFileNameOrDefault(const QString& name);
    bool isMainLogger() const;

    /// Whether this process is a fork of the one that made the logger. The chain is kept for good there, since POCO's
    /// registry may be locked by a thread that is not there.
    bool isInherited() const noexcept { return forks != LoggerRegistry::forksSoFar(); }

    /// Writes a record to POCO and the listeners. Ends the use before listeners are called.
    void write(ChainUse& use, const PocoMessage& record);

    /// Counts a record that came to no line for want of memory as lost, if the level lets its priority through.
    void loseRecord(int priority);

    /// Lets the threads that log see the present fields. Where it throws, nothing has changed for them.
    void publishRules() ZYR_REQUIRES(chain.fieldsMutex);

    /// Appends to a field that rules are made of, and publishes; on exception neither.
    template <typename Item>
    void append(const Item& item, QList<Item>& list) ZYR_REQUIRES(chain.fieldsMutex)
    {
        list.append(item);
        try {
            publishRules();
        } catch (...) {
            list.removeLast();
            throw;
        }
    }

    enum class LoadOutcome { Applied, ValueRefused, FileNotOpened };
    /// Applies the settings, making what is missing of the chain. `settingsChanged` stays false when it ends early.
    LoadOutcome applySettings(QSettings& settings, bool& settingsChanged);

    // Around fork(), in functions that the check of locks cannot follow.
    void lockForFork() ZYR_UNCHECKED_LOCKING;
    void unlockAfterFork() ZYR_UNCHECKED_LOCKING;
    void renewInChild() ZYR_UNCHECKED_LOCKING;

    /// Keeps loads and changes of the location apart, and guards no field, so that there is nothing to check.
    /// Recursive: a message handler of Qt may call back while settings are read.
    std::recursive_mutex reloadMutex;

    const std::shared_ptr<ChainAccess> access = std::make_shared<ChainAccess>();
    LoggerRules rules{*access};
    LoggerChain chain;
    RepeatSuppression repeats;
    ListenerCalls listenerCalls;

private:
    class SettingsLoad;

    void callListeners(const PocoMessage& record);

    Logger& logger;
    const unsigned forks;                  ///< between the first logger's process and the one that made this logger
    std::atomic<bool> isUnwatched = false; ///< the settings file could not be watched at the last attempt
};

} // namespace Zyr
