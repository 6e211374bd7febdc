// How a logger's chain is made, published, kept for those who use it, and taken apart.

#include "logger/LoggerChain.h"

#include "chain/LineFormatter.h"
#include "chain/LineFormattingChannel.h"
#include "chain/LineQueueChannel.h"
#include "settings/SettingsGroup.h"

#include <ZyrTools/Misc.h>

#include <QtCore/QThread>

#include <Poco/Exception.h>
#include <Poco/Logger.h>

#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

/// How long a logger that ends leaves its file alone after the close. Part of the interface: what is queued is written
/// by finish(), however long that takes.
constexpr unsigned long endMilliseconds = 1000;

} // namespace

/// share() after `make` has made the link, if there was none.
template <typename Link, typename Make>
Poco::AutoPtr<Link> LoggerChain::ensure(Link*& link, Make make)
{
    if (isGone())
        return nullptr;
    const std::lock_guard lock(fieldsMutex);
    if (!link && !isGone()) {
        link = make();
        publish();
    }
    return shareLocked(link);
}

Poco::AutoPtr<LogFileChannel> LoggerChain::ensureFile()
{
    ensure(links.file, [] { return new LogFileChannel; });
    return shareFile();
}

Poco::AutoPtr<Poco::PatternFormatter> LoggerChain::ensureFormatter()
{
    return ensure(links.formatter, [] { return new LineFormatter; });
}

/// Each link gets a reference of its own before ours is released, so that a failure in between loses nothing.
void LoggerChain::ensureQueueAndFormatting(const QString& loggerName)
{
    ensure(links.queue, [this] {
        auto* made =
            new LineQueueChannel(Poco::AutoPtr<LogFileChannel>(static_cast<LogFileChannel*>(links.file), true));
        links.file->release();
        return made;
    });
    ensure(links.formatting, [&] {
        const Poco::AutoPtr formatter(static_cast<LineFormatter*>(links.formatter), true);
        auto& file = static_cast<LogFileChannel&>(*links.file);
        file.writer().setLossFormat(loggerName.toStdString(), formatter->patterns());
        auto* made = new LineFormattingChannel(
            formatter, Poco::AutoPtr(static_cast<LineQueueChannel*>(links.queue), true), access);
        links.formatter->release();
        links.queue->release();
        return made;
    });
}

bool LoggerChain::complete(const QString& loggerName, const QString& level, const QString& settingsFile)
{
    ensureQueueAndFormatting(loggerName);
    const std::string levelName = level.toStdString();
    const QString setting = describeSetting(LoggerKeys::group, LoggerKeys::level.name, level);
    if (auto registered = share(links.logger)) {
        try {
            registered->setLevel(levelName);
        } catch (const Poco::Exception& error) {
            throw Poco::InvalidArgumentException(setting.toStdString(), error.message());
        }
        const std::lock_guard lock(fieldsMutex);
        publish();
        return true;
    }
    try {
        makeLogger(loggerName.toStdString(), levelName);
        return true;
    } catch (const Poco::ExistsException&) {
        Misc::reportProblem(settingsFile,
                            u"another logger is named '"_s + loggerName + u"': this one writes nothing"_s);
        return false;
    } catch (...) {
        Misc::reportProblem(settingsFile, u"no logger '"_s + loggerName + u"' with "_s + setting + u": "_s +
                                              Misc::currentExceptionText());
        return false;
    }
}

/// POCO's lock is waited for without that of the fields: the thread that holds it may log, and so want that one. An
/// entry that comes just after a shutdown is released by POCO at the end of the process.
void LoggerChain::makeLogger(const std::string& loggerName, const std::string& level)
{
    const Poco::Channel::Ptr channel = share(links.formatting);
    if (!channel)
        return;
    const int parsed = Poco::Logger::parseLevel(level);
    LoggerRegistry::callPocoRegistry([&] {
        if (isGone())
            return;
        auto& made = Poco::Logger::create(loggerName, channel, parsed);
        const std::lock_guard lock(fieldsMutex);
        links.logger = &made;
        links.formatting->release();
        publish();
    });
}

void LoggerChain::publish() noexcept
{
    hasFile.store(links.file, std::memory_order_release);
    int enabled = ChainAccess::always;
    if (isGone() || (links.file && !links.logger))
        enabled = ChainAccess::never;
    else if (links.logger && !rules.current().suppressRepeats)
        enabled = links.logger->getLevel();
    access->set(isGone() ? nullptr : links.logger, enabled);
}

bool LoggerChain::close(const QString& loggerName)
{
    if (auto channel = shareFile()) {
        channel->close();
        QThread::msleep(endMilliseconds);
        // Before POCO lets go of the chain, which it does under its own lock.
        channel->writer().finish();
    }
    // These end the chain when they go, after that lock has been left.
    const auto link = share(links.formatting);
    if (const auto registered = share(links.logger)) {
        access->close();
        keepUsed();
        try {
            LoggerRegistry::callPocoRegistry([&] { Poco::Logger::destroy(loggerName.toStdString()); });
        } catch (...) {
            // POCO knows no such logger any more.
        }
        forget();
        return true;
    }
    releaseIncomplete();
    return false;
}

void LoggerChain::keepUsed(ChainAccess::Clock::time_point limit)
{
    if (access->waitForUses(limit))
        return;
    const std::lock_guard lock(fieldsMutex);
    if (links.logger && !access->isReleased())
        links.logger->duplicate();
}

/// Releases the references that the logger still holds: those of a chain that POCO's registry never got.
void LoggerChain::releaseIncomplete() noexcept
{
    // Each link that is there took over the references to those before it.
    if (!links.logger) {
        if (links.formatting) {
            links.formatting->release();
        } else {
            if (links.queue)
                links.queue->release();
            else if (links.file)
                links.file->release();
            if (links.formatter)
                links.formatter->release();
        }
    }
    forget();
}

void LoggerChain::forget() noexcept
{
    const std::lock_guard lock(fieldsMutex);
    links.file = nullptr;
    links.formatter = nullptr;
    links.queue = nullptr;
    links.formatting = nullptr;
    links.logger = nullptr;
    publish();
}

void LoggerChain::lockFile()
{
    lockedFile = shareLocked(links.file).unsafeCast<LogFileChannel>();
    if (lockedFile)
        lockedFile->lock();
}

Poco::AutoPtr<LogFileChannel> LoggerChain::unlockFile()
{
    auto file = std::exchange(lockedFile, nullptr);
    if (file)
        file->unlock();
    return file;
}

/// Nothing of the parent's that is still to be written is written by the child.
void LoggerChain::renewInChild()
{
    if (lockedFile) {
        lockedFile->renewInChild();
        // Nobody may release the chain: POCO's own static objects would at the end, behind POCO's lock.
        if (links.logger)
            links.logger->duplicate();
        if (links.formatter)
            static_cast<LineFormatter*>(links.formatter)->afterForkInChild();
    }
    access->afterForkInChild();
    lockedFile = nullptr;
}

} // namespace Zyr
