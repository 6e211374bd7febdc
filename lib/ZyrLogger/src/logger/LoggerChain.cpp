// How a logger's chain is made, published, kept for those who use it, and taken apart.

#include "logger/LoggerChain.h"

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

Poco::AutoPtr<LogFileChannel> LoggerChain::shareFile() const
{
    const Guard guard(fieldsMutex);
    return share<LogFileChannel>(links.file);
}

Poco::AutoPtr<LineFormatter> LoggerChain::shareFormatter() const
{
    const Guard guard(fieldsMutex);
    return share<LineFormatter>(links.formatter);
}

Poco::AutoPtr<Poco::AsyncChannel> LoggerChain::shareQueue() const
{
    const Guard guard(fieldsMutex);
    return share<Poco::AsyncChannel>(links.queue);
}

Poco::AutoPtr<Poco::FormattingChannel> LoggerChain::shareFormatting() const
{
    const Guard guard(fieldsMutex);
    return share<Poco::FormattingChannel>(links.formatting);
}

Poco::AutoPtr<Poco::Logger> LoggerChain::shareLogger() const
{
    const Guard guard(fieldsMutex);
    return share<Poco::Logger>(links.logger);
}

Poco::AutoPtr<LogFileChannel> LoggerChain::ensureFile()
{
    const Guard guard(fieldsMutex);
    if (!links.file && !isGone()) {
        links.file = new LogFileChannel;
        publish();
    }
    return share<LogFileChannel>(links.file);
}

Poco::AutoPtr<LineFormatter> LoggerChain::ensureFormatter()
{
    const Guard guard(fieldsMutex);
    if (!links.formatter && !isGone())
        links.formatter = new LineFormatter;
    return share<LineFormatter>(links.formatter);
}

/// Each link gets a reference of its own before ours is released, so that a failure in between loses nothing.
void LoggerChain::makeQueueAndFormatting(const std::string& loggerName)
{
    const Guard guard(fieldsMutex);
    if (isGone())
        return;
    // A shutdown that begins now waits for the mutex before it releases anything.
    const Poco::AutoPtr file(static_cast<LogFileChannel*>(links.file), true);
    if (!links.queue) {
        links.queue = new LineQueueChannel(file);
        file->release();
    }
    if (!links.formatting) {
        const Poco::AutoPtr formatter(static_cast<LineFormatter*>(links.formatter), true);
        const Poco::AutoPtr queue(static_cast<LineQueueChannel*>(links.queue), true);
        file->writer().setLossFormat(loggerName, formatter->patterns());
        links.formatting = new LineFormattingChannel(formatter, queue, access);
        formatter->release();
        queue->release();
    }
}

bool LoggerChain::complete(const QString& loggerName, const QString& level, const QString& settingsFile)
{
    makeQueueAndFormatting(loggerName.toStdString());
    const std::string levelName = level.toStdString();
    const QString setting = describeSetting(LoggerKeys::group, LoggerKeys::level.name, level);
    if (auto registered = shareLogger()) {
        try {
            registered->setLevel(levelName);
        } catch (const Poco::Exception& error) {
            throw Poco::InvalidArgumentException(setting.toStdString(), error.message());
        }
        const Guard guard(fieldsMutex);
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
    const Poco::Channel::Ptr channel = shareFormatting();
    if (!channel)
        return;
    const int parsed = Poco::Logger::parseLevel(level);
    LoggerRegistry::callPocoRegistry([&] {
        if (isGone())
            return;
        auto& made = Poco::Logger::create(loggerName, channel, parsed);
        const Guard guard(fieldsMutex);
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
    const auto link = shareFormatting();
    if (const auto registered = shareLogger()) {
        access->close();
        keepUsed();
        try {
            LoggerRegistry::callPocoRegistry([&] { Poco::Logger::destroy(loggerName.toStdString()); });
        } catch (...) {
            // POCO knows no such logger any more.
        }
        const Guard guard(fieldsMutex);
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
    const Guard guard(fieldsMutex);
    if (links.logger && !access->isReleased())
        links.logger->duplicate();
}

/// Releases the references that the logger still holds: those of a chain that POCO's registry never got.
void LoggerChain::releaseIncomplete() noexcept
{
    Poco::AutoPtr<Poco::Channel> channel;
    Poco::AutoPtr<Poco::Formatter> formatter;
    const Guard guard(fieldsMutex);
    // Each link that is there took over the references to those before it.
    if (!links.logger) {
        if (links.formatting) {
            channel = links.formatting;
        } else {
            channel = links.queue ? static_cast<Poco::Channel*>(links.queue) : links.file;
            formatter = links.formatter;
        }
    }
    forget();
}

void LoggerChain::forget() noexcept
{
    links.file = nullptr;
    links.formatter = nullptr;
    links.queue = nullptr;
    links.formatting = nullptr;
    links.logger = nullptr;
    publish();
}

void LoggerChain::lockFile()
{
    lockedFile = share<LogFileChannel>(links.file);
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
