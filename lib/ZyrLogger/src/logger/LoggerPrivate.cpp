// How a logger starts and ends, what it publishes, and what it does around fork().

#include "logger/LoggerPrivate.h"

#include "logger/MainLogger.h"
#include "logger/OwnEntries.h"
#include "writer/ShutdownDeadline.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>
#include <QtCore/QScopeGuard>

#include <Poco/Logger.h>

#include <exception>
#include <new>

namespace Zyr {

using namespace Qt::StringLiterals;

LoggerPrivate::LoggerPrivate(Logger& itsLogger)
    : chain({itsLogger.fileChannel, itsLogger.patternFormatter, itsLogger.asyncChannel, itsLogger.formattingChannel,
             itsLogger.pocoLogger},
            access, rules)
    , repeats(*this, itsLogger.mutex, itsLogger.pendingMessages, itsLogger.repeatCounts)
    , listenerCalls(chain.fieldsMutex, itsLogger.listeners)
    , logger(itsLogger)
    , forks(LoggerRegistry::forksSoFar())
{
    ShutdownDeadline::watchMainThread();
    publishRules();
    LoggerRegistry::add(*this);
}

LoggerPrivate::~LoggerPrivate()
{
    LoggerRegistry::remove(*this);
}

void LoggerPrivate::start(const QString& logFileName)
{
    if (chain.isGone())
        return;
    Misc::checkDirectory(QFileInfo(logger.logFilePath).absolutePath());
    isUnwatched = !logger.startConfigFileWatcher();
    if (isUnwatched)
        logger.out(Warning, u"Can not watch file '%1'"_s, OwnEntries::file, OwnEntries::cannotWatchLine)
            .arg(logFileNameOrDefault(logFileName))
            .endl();
}

void LoggerPrivate::watchSettings()
{
    if (!isUnwatched.exchange(false))
        return;
    auto still = qScopeGuard([this] { isUnwatched = true; });
    if (logger.startConfigFileWatcher())
        still.dismiss();
}

void LoggerPrivate::retire() noexcept
{
    isUnwatched = false;
    logger.stopConfigFileWatcher();
    try {
        if (!isInherited()) {
            if (chain.close(logger.loggerName) && isMainLogger())
                LoggerRegistry::shutPocoDown();
        } else if (auto channel = chain.shareFile()) {
            channel->writer().finish(); // what was logged in this process; the chain itself is kept for good
        }
    } catch (...) {
        // A destructor always finishes.
    }
}

QString LoggerPrivate::logFileNameOrDefault(const QString& name)
{
    return name.isEmpty() ? Misc::applicationName() + u".log"_s : name;
}

bool LoggerPrivate::isMainLogger() const
{
    return logger.loggerName == MainLogger::name;
}

void LoggerPrivate::publishRules()
{
    rules.replace({TextFilters(logger.textFilters, logger.excludeFilters),
                   {logger.amountRepeatedMsg, logger.maxRepeatedMsgCounter},
                   logger.checkRepeatedMsg && logger.amountRepeatedMsg != 0,
                   !logger.listeners.isEmpty()});
    chain.publish();
}

void LoggerPrivate::loseRecord(int priority)
try {
    {
        const ChainUse use(*access);
        if (!use.logger() || priority > use.logger()->getLevel())
            return;
    }
    if (const auto file = chain.shareFile())
        file->writer().loseForWantOfMemory();
} catch (const std::exception&) {
    // There is no thread to report it; the next record tries again to start one.
}

void LoggerPrivate::lockForFork()
{
    repeats.lock();
    chain.fieldsMutex.lock();
    chain.lockFile();
}

void LoggerPrivate::unlockAfterFork()
{
    const auto file = chain.unlockFile(); // which may end with this
    chain.fieldsMutex.unlock();
    repeats.unlock();
}

/// Makes anew what another thread may have held or waited with, for it is not there to release it.
void LoggerPrivate::renewInChild()
{
    chain.renewInChild();
    repeats.renewInChild();
    listenerCalls.renewInChild();
    new (&reloadMutex) std::recursive_mutex;
    chain.fieldsMutex.unlock();
}

} // namespace Zyr
