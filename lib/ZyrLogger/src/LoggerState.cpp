#include "LoggerState.h"

#include "StandardOutput.h"

#include <QtCore/QDateTime>
#include <QtCore/QLocale>

#include <Poco/Logger.h>

#include <algorithm>
#include <atomic>

#include <pthread.h>

namespace Zyr {

namespace {

constinit std::atomic<bool> pocoIsShutDown = false;
constinit std::atomic<unsigned> forksSoFar = 0;
constinit std::mutex livingMutex;

} // namespace

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
        pthread_atfork(&beforeFork, &afterFork, &afterForkInChild);
    }
    ~ProcessLife() { markShutDown(); }
    ProcessLife(const ProcessLife&) = delete;
    ProcessLife& operator=(const ProcessLife&) = delete;
};

/// Guarded by `livingMutex`. Never destroyed: loggers live and die during static destruction too.
std::vector<Logger::State*>& Logger::State::living()
{
    static auto& states = *new std::vector<State*>;
    return states;
}

Logger::State::State(Logger& itsLogger)
    : logger(itsLogger)
    , forks(forksSoFar)
{
    static const ProcessLife life;
    const std::lock_guard lock(livingMutex);
    living().push_back(this);
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
    for (State* state : living())
        const std::lock_guard passed(state->guard);
}

void Logger::State::shutPocoDown()
{
    markShutDown();
    if (forksSoFar == 0) // the release of an inherited chain would wait for a worker thread that is not there
        Poco::Logger::shutdown();
}

bool Logger::State::isInherited() const noexcept
{
    return forks != forksSoFar;
}

bool Logger::State::isInside(const LogListener* listener) const
{
    return std::find(callsUnderWay.begin(), callsUnderWay.end(), listener) != callsUnderWay.end();
}

/// No lock that a child may need is held by another thread while the process is copied.
void Logger::State::beforeFork()
{
    livingMutex.lock();
    for (State* state : living())
        state->guard.lock();
    StandardOutput::lock();
}

void Logger::State::afterFork() noexcept
{
    StandardOutput::unlock();
    for (State* state : living())
        state->guard.unlock();
    livingMutex.unlock();
}

void Logger::State::afterForkInChild() noexcept
{
    ++forksSoFar;
    // Releasing a chain, as POCO's own static objects would at the end, waits for its worker thread, which is not
    // there: every inherited chain is kept for good.
    for (const State* state : living()) {
        if (state->logger.pocoLogger && !isShutDown())
            state->logger.pocoLogger->duplicate();
    }
    afterFork();
}

} // namespace Zyr
