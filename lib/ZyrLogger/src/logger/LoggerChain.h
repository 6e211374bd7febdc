// The output chain of one logger: how it is made, shared with other threads, and taken apart.

#pragma once

#include "base/Mutex.h"
#include "chain/ChainAccess.h"
#include "chain/LineFormatter.h"
#include "chain/LogFileChannel.h"
#include "logger/LoggerRegistry.h"
#include "logger/LoggerRules.h"

#include <Poco/AutoPtr.h>

#include <atomic>
#include <memory>
#include <string>

namespace Poco {
class AsyncChannel;
class FormattingChannel;
} // namespace Poco

namespace Zyr {

/// The logger's links into POCO's framework, and who may follow them.
///
/// A thread that logs takes no lock: it uses the chain through ChainAccess. Whoever else uses a link takes a reference
/// to it under the mutex of the logger's fields. So a shutdown of POCO's logging, which releases the chain, cannot pull
/// it away from either.
class LoggerChain
{
public:
    /// The logger's fields, from the chain's end to its beginning. They own nothing once the chain is complete: POCO's
    /// registry holds the logger, and each link holds the next. Until then the logger holds one reference to every
    /// object that it has not handed on yet.
    struct Links
    {
        Poco::FileChannel*& file;
        Poco::PatternFormatter*& formatter;
        Poco::AsyncChannel*& queue;
        Poco::FormattingChannel*& formatting;
        Poco::Logger*& logger;
    };

    LoggerChain(const Links& itsLinks, const std::shared_ptr<ChainAccess>& itsAccess, const LoggerRules& itsRules)
        : links(itsLinks)
        , access(itsAccess)
        , rules(itsRules)
    {
    }
    LoggerChain(const LoggerChain&) = delete;
    LoggerChain& operator=(const LoggerChain&) = delete;

    // A counted reference to one of the links; null when there is none or the chain is gone.
    Poco::AutoPtr<LogFileChannel> shareFile() const ZYR_EXCLUDES(fieldsMutex);
    Poco::AutoPtr<LineFormatter> shareFormatter() const ZYR_EXCLUDES(fieldsMutex);
    Poco::AutoPtr<Poco::AsyncChannel> shareQueue() const ZYR_EXCLUDES(fieldsMutex);

    // The same, made before where there was none.
    Poco::AutoPtr<LogFileChannel> ensureFile() ZYR_EXCLUDES(fieldsMutex);
    Poco::AutoPtr<LineFormatter> ensureFormatter() ZYR_EXCLUDES(fieldsMutex);

    /// Makes the links that are still missing, each of which takes over the logger's references to the ones below it,
    /// and sets the level. Returns whether the logger is complete now; what it lacks is reported, with the settings
    /// file's path.
    bool complete(const QString& loggerName, const QString& level, const QString& settingsFile)
        ZYR_EXCLUDES(fieldsMutex);

    /// Ends the chain. Returns whether it was complete.
    bool close(const QString& loggerName) ZYR_EXCLUDES(fieldsMutex);

    /// Whether the chain must not be touched, since the pointers to it may dangle: after a shutdown, and when the
    /// application itself released it through POCO. Takes no lock.
    bool isGone() const noexcept { return LoggerRegistry::isShutDown() || access->isReleased(); }

    /// Whether entries can be written. Takes no lock.
    bool isUsable() const noexcept { return hasFile.load(std::memory_order_acquire) && !isGone(); }

    /// Lets the threads that log see what has changed of the links, the level or the rules.
    void publish() noexcept ZYR_REQUIRES(fieldsMutex);

    /// Before the chain is released: waits for the threads that are using it, after nobody can begin to. One that hangs
    /// keeps it for good.
    void keepUsed(ChainAccess::Clock::time_point limit = ChainAccess::Clock::now() + ChainAccess::maxWait)
        ZYR_EXCLUDES(fieldsMutex);

    // Around fork().
    void lockFile() ZYR_REQUIRES(fieldsMutex);
    /// Returns the last reference, perhaps: to be released without a lock of this logger.
    [[nodiscard]] Poco::AutoPtr<LogFileChannel> unlockFile() ZYR_REQUIRES(fieldsMutex);
    void renewInChild() ZYR_REQUIRES(fieldsMutex);

    /// Guards the fields of the logger that may change while others use it: the links, the filters, the settings of
    /// repeat suppression, and the listeners.
    mutable Mutex fieldsMutex;

private:
    template <typename Link>
    Poco::AutoPtr<Link> share(auto* link) const ZYR_REQUIRES(fieldsMutex)
    {
        return Poco::AutoPtr<Link>(isGone() ? nullptr : static_cast<Link*>(link), true);
    }
    Poco::AutoPtr<Poco::FormattingChannel> shareFormatting() const ZYR_EXCLUDES(fieldsMutex);
    Poco::AutoPtr<Poco::Logger> shareLogger() const ZYR_EXCLUDES(fieldsMutex);
    void makeQueueAndFormatting(const std::string& loggerName) ZYR_EXCLUDES(fieldsMutex);
    void makeLogger(const std::string& loggerName, const std::string& level) ZYR_EXCLUDES(fieldsMutex);
    void releaseIncomplete() noexcept ZYR_EXCLUDES(fieldsMutex);
    void forget() noexcept ZYR_REQUIRES(fieldsMutex);

    const Links links ZYR_GUARDED_BY(fieldsMutex);
    const std::shared_ptr<ChainAccess> access;
    const LoggerRules& rules;
    std::atomic<bool> hasFile = false;
    /// By lockFile(); the chain may count as gone before it is unlocked.
    Poco::AutoPtr<LogFileChannel> lockedFile ZYR_GUARDED_BY(fieldsMutex);
};

} // namespace Zyr
