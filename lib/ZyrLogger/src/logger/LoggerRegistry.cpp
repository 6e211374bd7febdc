// The list of loggers, the handlers of fork(), and the end of all logging.

#include "logger/LoggerRegistry.h"

#include "base/LocalTime.h"
#include "caller/CallerThread.h"
#include "logger/LoggerPrivate.h"
#include "system/ForkClosedFile.h"
#include "system/StandardOutput.h"

#include <QtCore/QDateTime>
#include <QtCore/QLocale>

#include <Poco/AsyncChannel.h>
#include <Poco/Logger.h>

#include <atomic>
#include <new>

#include <pthread.h>

namespace Zyr {

namespace {

constinit std::atomic<bool> pocoIsShutDown = false;
constinit std::atomic<unsigned> forks = 0;

} // namespace

constinit Mutex LoggerRegistry::pocoRegistryMutex;
constinit Mutex LoggerRegistry::constructionMutex;
constinit Mutex LoggerRegistry::listMutex;

/// From the beginning, since another thread may fork while the first logger is made.
const int LoggerRegistry::forkHandlers = pthread_atfork(&beforeFork, &afterFork, &afterForkInChild);

/// Made with the first logger, so that it ends after every logger that has an end, and before the static objects of Qt
/// and POCO that logging needs: whatever still logs then, through a logger that nobody destroys, must not reach them.
class LoggerRegistry::ProcessLife
{
public:
    ProcessLife()
    {
        // Qt makes these when they are first used; they have to be there before this object is.
        static_cast<void>(QLocale().toString(0.5));
        static_cast<void>(QDateTime::currentDateTime().toString(Qt::ISODateWithMs));
    }
    ~ProcessLife()
    {
        markShutDown();
        const auto limit = ChainAccess::Clock::now() + ChainAccess::maxWait;
        try {
            for (const auto& each : accesses()) // who renders a text needs Qt's static objects
                each->waitForUses(limit);
        } catch (const std::bad_alloc&) {
            // Nobody is waited for.
        }
    }
    ProcessLife(const ProcessLife&) = delete;
    ProcessLife& operator=(const ProcessLife&) = delete;
};

/// Never destroyed: loggers live and die during static destruction too.
std::vector<LoggerPrivate*>& LoggerRegistry::loggers()
{
    static auto& all = *new std::vector<LoggerPrivate*>;
    return all;
}

std::vector<std::shared_ptr<ChainAccess>> LoggerRegistry::accesses()
{
    std::vector<std::shared_ptr<ChainAccess>> all;
    const Guard guard(listMutex);
    for (const LoggerPrivate* logger : loggers())
        all.push_back(logger->access);
    return all;
}

void LoggerRegistry::add(LoggerPrivate& logger)
{
    static const ProcessLife life;
    const Guard guard(listMutex);
    loggers().push_back(&logger);
    const Guard fieldsGuard(logger.chain.fieldsMutex);
    logger.chain.publish(); // there may have been a shutdown meanwhile
}

void LoggerRegistry::remove(LoggerPrivate& logger)
{
    const Guard guard(listMutex);
    std::erase(loggers(), &logger);
}

bool LoggerRegistry::isShutDown() noexcept
{
    return pocoIsShutDown.load(std::memory_order_acquire);
}

unsigned LoggerRegistry::forksSoFar() noexcept
{
    return forks;
}

void LoggerRegistry::markShutDown()
{
    pocoIsShutDown.store(true, std::memory_order_release);
    // Whoever asked before the mark holds its logger's lock until it has its own reference to the chain.
    const Guard guard(listMutex);
    for (LoggerPrivate* logger : loggers()) {
        const Guard passed(logger->chain.fieldsMutex);
        logger->access->close();
    }
}

void LoggerRegistry::shutPocoDown()
{
    // Held until POCO has released its lock, so that no chain ends under it.
    std::vector<Poco::AutoPtr<Poco::AsyncChannel>> chains;
    std::vector<Poco::AutoPtr<LogFileChannel>> files;
    {
        const Guard guard(listMutex);
        for (const LoggerPrivate* logger : loggers()) {
            chains.push_back(logger->chain.shareQueue());
            files.push_back(logger->chain.shareFile());
        }
    }
    markShutDown();
    const auto limit = ChainAccess::Clock::now() + ChainAccess::maxWait;
    for (const auto& each : accesses()) // without the lock, which who is to leave may want
        each->waitForUses(limit);
    {
        const Guard guard(listMutex);
        for (LoggerPrivate* logger : loggers())
            logger->chain.keepUsed(limit);
    }
    for (const auto& file : files) {
        if (file)
            file->writer().finish();
    }
    if (forks == 0) // POCO's registry may be locked for ever in a child
        Poco::Logger::shutdown();
}

void LoggerRegistry::beforeFork()
{
    pocoRegistryMutex.lock();
    constructionMutex.lock();
    listMutex.lock();
    for (LoggerPrivate* logger : loggers())
        logger->lockForFork();
    ForkClosedFile::beforeFork();
}

// NOLINTNEXTLINE(bugprone-exception-escape): unlocking throws nothing
void LoggerRegistry::afterFork() noexcept
{
    ForkClosedFile::afterFork();
    for (LoggerPrivate* logger : loggers())
        logger->unlockAfterFork();
    listMutex.unlock();
    constructionMutex.unlock();
    pocoRegistryMutex.unlock();
}

void LoggerRegistry::afterForkInChild() noexcept
{
    ++forks;
    ForkClosedFile::afterForkInChild();
    StandardOutput::afterForkInChild();
    LocalTime::afterForkInChild();
    CallerThread::afterForkInChild();
    for (LoggerPrivate* logger : loggers())
        logger->renewInChild();
    listMutex.unlock();
    constructionMutex.unlock();
    pocoRegistryMutex.unlock();
}

} // namespace Zyr
