// The output chain of one logger: how it is made, shared with other threads, and taken apart.

#pragma once

#include "chain/ChainAccess.h"
#include "chain/LogFileChannel.h"
#include "logger/LoggerRegistry.h"
#include "logger/LoggerRules.h"

#include <Poco/AutoPtr.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace Poco {
class AsyncChannel;
class FormattingChannel;
class PatternFormatter;
} // namespace Poco

namespace Zyr {

/// The logger's links into POCO's framework, and who may follow them.
///
/// A thread that logs takes no lock: it uses the chain through ChainAccess. Whoever else uses a link takes a reference
/// to it under the lock of the logger's fields (share()). So a shutdown of POCO's logging, which releases the chain,
/// cannot pull it away from either.
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

    LoggerChain(const Links& itsLinks, std::mutex& itsFieldsMutex, const std::shared_ptr<ChainAccess>& itsAccess,
                const LoggerRules& itsRules)
        : links(itsLinks)
        , fieldsMutex(itsFieldsMutex)
        , access(itsAccess)
        , rules(itsRules)
    {
    }
    LoggerChain(const LoggerChain&) = delete;
    LoggerChain& operator=(const LoggerChain&) = delete;

    /// A counted reference to one of the links; null when there is none or the chain is gone.
    template <typename Link>
    Poco::AutoPtr<Link> share(Link* const& link) const
    {
        if (isGone())
            return nullptr;
        const std::lock_guard lock(fieldsMutex);
        return shareLocked(link);
    }

    /// share() of the file channel, as what it is.
    Poco::AutoPtr<LogFileChannel> shareFile() const { return share(links.file).unsafeCast<LogFileChannel>(); }

    /// share() of the file channel or the formatter, made before where there was none.
    Poco::AutoPtr<LogFileChannel> ensureFile();
    Poco::AutoPtr<Poco::PatternFormatter> ensureFormatter();

    /// Makes the links that are still missing, each of which takes over the logger's references to the ones below it,
    /// and sets the level. Returns whether the logger is complete now; what it lacks is reported, with the settings
    /// file's path.
    bool complete(const QString& loggerName, const QString& level, const QString& settingsFile);

    /// Ends the chain. Returns whether it was complete.
    bool close(const QString& loggerName);

    /// Whether the chain must not be touched, since the pointers to it may dangle: after a shutdown, and when the
    /// application itself released it through POCO. Takes no lock.
    bool isGone() const noexcept { return LoggerRegistry::isShutDown() || access->isReleased(); }

    /// Whether entries can be written. Takes no lock.
    bool isUsable() const noexcept { return hasFile.load(std::memory_order_acquire) && !isGone(); }

    /// Lets the threads that log see what has changed of the links, the level or the rules. The caller holds the lock
    /// of the fields.
    void publish() noexcept;

    /// Before the chain is released: waits for the threads that are using it, after nobody can begin to. One that hangs
    /// keeps it for good.
    void keepUsed(ChainAccess::Clock::time_point limit = ChainAccess::Clock::now() + ChainAccess::patience);

    // Around fork(); the caller holds the lock of the fields.
    void lockFile();
    /// Returns the last reference, perhaps: to be released without a lock of this logger.
    [[nodiscard]] Poco::AutoPtr<LogFileChannel> unlockFile();
    void renewInChild();

    const Links links;

private:
    template <typename Link>
    Poco::AutoPtr<Link> shareLocked(Link* link) const
    {
        return Poco::AutoPtr<Link>(isGone() ? nullptr : link, true);
    }
    template <typename Link, typename Make>
    Poco::AutoPtr<Link> ensure(Link*& link, Make make);
    void ensureQueueAndFormatting(const QString& loggerName);
    void makeLogger(const std::string& loggerName, const std::string& level);
    void releaseIncomplete() noexcept;
    void forget() noexcept;

    std::mutex& fieldsMutex;
    const std::shared_ptr<ChainAccess> access;
    const LoggerRules& rules;
    std::atomic<bool> hasFile = false;
    Poco::AutoPtr<LogFileChannel> lockedFile; ///< by lockFile(); the chain may count as gone before it is unlocked
};

} // namespace Zyr
