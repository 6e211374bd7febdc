#include "logger/LoggerState.h"

#include "base/LocalTime.h"
#include "caller/CallerThread.h"
#include "chain/LineFormatter.h"
#include "system/ForkClosedFile.h"
#include "system/StandardOutput.h"
#include "writer/Patience.h"

#include <ZyrLogger/PocoMessage.h>

#include <QtCore/QDateTime>
#include <QtCore/QLocale>

#include <Poco/AsyncChannel.h>
#include <Poco/Logger.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <new>
#include <utility>

#include <pthread.h>

namespace Zyr {

namespace {

constinit std::atomic<bool> pocoIsShutDown = false;
constinit std::atomic<unsigned> forksSoFar = 0;
constinit std::mutex livingMutex;

} // namespace

constinit std::mutex Logger::State::birth;
constinit std::mutex Logger::State::registry;

/// From the beginning, since another thread may fork while the first logger is made.
const int Logger::State::forkHandlers = pthread_atfork(&beforeFork, &afterFork, &afterForkInChild);

/// Made with the first logger, so that it ends after every logger that has an end, and before the static objects of Qt
/// and POCO that logging needs: whatever still logs then, through a logger that nobody destroys, must not reach them.
class Logger::State::ProcessLife
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
        const auto limit = ChainAccess::Clock::now() + ChainAccess::patience;
        try {
            for (const auto& each : livingAccesses()) // who renders a text needs Qt's static objects
                each->waitForUses(limit);
        } catch (const std::bad_alloc&) {
            // Nobody is waited for.
        }
    }
    ProcessLife(const ProcessLife&) = delete;
    ProcessLife& operator=(const ProcessLife&) = delete;
};

/// Guarded by `livingMutex`. Never destroyed: loggers live and die during static destruction too.
std::vector<Logger::State*>& Logger::State::living()
{
    static auto& states = *new std::vector<State*>;
    return states;
}

std::vector<std::shared_ptr<ChainAccess>> Logger::State::livingAccesses()
{
    std::vector<std::shared_ptr<ChainAccess>> accesses;
    const std::lock_guard lock(livingMutex);
    for (const State* state : living())
        accesses.push_back(state->access);
    return accesses;
}

Logger::State::State(Logger& itsLogger)
    : logger(itsLogger)
    , forks(forksSoFar)
{
    static const ProcessLife life;
    Patience::watchMainThread();
    publishRules();
    const std::lock_guard lock(livingMutex);
    living().push_back(this);
    publishChain(); // there may have been a shutdown meanwhile
}

Logger::State::~State()
{
    const std::lock_guard lock(livingMutex);
    std::erase(living(), this);
}

bool Logger::State::isShutDown() noexcept
{
    return pocoIsShutDown.load(std::memory_order_acquire);
}

void Logger::State::markShutDown()
{
    pocoIsShutDown.store(true, std::memory_order_release);
    // Whoever asked before the mark holds its logger's guard until it has its own reference to the chain.
    const std::lock_guard lock(livingMutex);
    for (State* state : living()) {
        const std::lock_guard passed(state->guard);
        state->access->close();
    }
}

void Logger::State::shutPocoDown()
{
    // Held until POCO has let go of its lock, so that no chain ends under it.
    std::vector<Poco::AutoPtr<Poco::AsyncChannel>> chains;
    std::vector<Poco::AutoPtr<LogFileChannel>> files;
    {
        const std::lock_guard lock(livingMutex);
        for (State* state : living()) {
            chains.push_back(state->share(state->logger.asyncChannel));
            files.push_back(state->shareFile());
        }
    }
    markShutDown();
    const auto limit = ChainAccess::Clock::now() + ChainAccess::patience;
    for (const auto& each : livingAccesses()) // without the lock, which who is to leave may want
        each->waitForUses(limit);
    {
        const std::lock_guard lock(livingMutex);
        for (State* state : living())
            state->keepUsedChain(limit);
    }
    for (const auto& file : files) {
        if (file)
            file->writer().finish();
    }
    if (forksSoFar == 0) // POCO's registry may be locked for ever in a child
        Poco::Logger::shutdown();
}

void Logger::State::publishChain() noexcept
{
    hasFile.store(logger.fileChannel, std::memory_order_release);
    const Rules* const rules = inForce.load(std::memory_order_relaxed);
    int enabled = ChainAccess::always;
    if (isChainGone() || (logger.fileChannel && !logger.pocoLogger))
        enabled = ChainAccess::never;
    else if (logger.pocoLogger && !rules->suppressRepeats)
        enabled = logger.pocoLogger->getLevel();
    access->set(isChainGone() ? nullptr : logger.pocoLogger, enabled);
}

void Logger::State::publishRules()
{
    const RepeatLimits limits = {logger.amountRepeatedMsg, logger.maxRepeatedMsgCounter};
    auto rules = std::make_unique<const Rules>(Rules{TextFilters(logger.textFilters, logger.excludeFilters), limits,
                                                     logger.checkRepeatedMsg && logger.amountRepeatedMsg != 0,
                                                     !logger.listeners.isEmpty()});
    formerRules.emplace_back();
    inForce.store(rules.get());
    formerRules.back().rules = std::exchange(ownedRules, std::move(rules));
    publishChain();
    freeFormerRules();
}

void Logger::State::loseRecord(int priority)
try {
    {
        const ChainUse use(*access);
        if (!use.logger() || priority > use.logger()->getLevel())
            return;
    }
    if (const auto file = shareFile())
        file->writer().loseForWantOfMemory();
} catch (const std::exception&) {
    // No thread to tell of it, which the next record tries to start again.
}

/// Those that nobody goes by any more: whoever began after they were replaced has found newer ones.
void Logger::State::freeFormerRules() noexcept
try {
    for (FormerRules& former : formerRules) {
        if (!former.users)
            former.users = access->users();
    }
    formerRules.remove_if([this](const FormerRules& former) { return access->haveLeft(*former.users); });
} catch (const std::bad_alloc&) {
    // Next time.
}

void Logger::State::keepUsedChain(ChainAccess::Clock::time_point limit)
{
    if (access->waitForUses(limit))
        return;
    const std::lock_guard lock(guard);
    if (logger.pocoLogger && !access->isReleased())
        logger.pocoLogger->duplicate();
}

bool Logger::State::isInherited() const noexcept
{
    return forks != forksSoFar;
}

bool Logger::State::isInside(const LogListener* listener) const
{
    return std::find(callsUnderWay.begin(), callsUnderWay.end(), listener) != callsUnderWay.end();
}

void Logger::State::lockAll()
{
    logger.mutex.lock();
    guard.lock();
    lockedFile = shareLocked(logger.fileChannel).unsafeCast<LogFileChannel>();
    if (lockedFile)
        lockedFile->lock();
}

void Logger::State::unlockAll()
{
    auto file = std::exchange(lockedFile, nullptr); // which may end with this
    if (file)
        file->unlock();
    guard.unlock();
    logger.mutex.unlock();
}

/// Nothing of the parent's that is still to be written is written by the child.
void Logger::State::renewInChild()
{
    if (lockedFile) {
        lockedFile->renewInChild();
        // Nobody may release the chain: POCO's own static objects would at the end, behind POCO's lock.
        if (logger.pocoLogger)
            logger.pocoLogger->duplicate();
        if (logger.patternFormatter)
            static_cast<LineFormatter*>(logger.patternFormatter)->afterForkInChild();
    }
    access->afterForkInChild();
    logger.pendingMessages.clear();
    logger.repeatCounts.clear();
    pendingFiles.clear();
    // What another thread may have held or waited for, and will never leave.
    new (&reload) std::recursive_mutex;
    new (&listenerLeft) std::condition_variable;
    new (&logger.mutex) Poco::Mutex; // knows its owner by a number that the child's thread does not have
    lockedFile = nullptr;
    guard.unlock();
}

/// No lock that a child may need is held by another thread while the process is copied, of those that are held for a
/// few instructions only. The others are made anew in the child.
void Logger::State::beforeFork()
{
    birth.lock();
    livingMutex.lock();
    for (State* state : living())
        state->lockAll();
    registry.lock();
    ForkClosedFile::beforeFork();
}

// NOLINTNEXTLINE(bugprone-exception-escape): unlocking throws nothing
void Logger::State::afterFork() noexcept
{
    ForkClosedFile::afterFork();
    registry.unlock();
    for (State* state : living())
        state->unlockAll();
    livingMutex.unlock();
    birth.unlock();
}

void Logger::State::afterForkInChild() noexcept
{
    ++forksSoFar;
    ForkClosedFile::afterForkInChild();
    StandardOutput::afterForkInChild();
    LocalTime::afterForkInChild();
    CallerThread::afterForkInChild();
    for (State* state : living())
        state->renewInChild();
    registry.unlock();
    livingMutex.unlock();
    birth.unlock();
}

} // namespace Zyr
