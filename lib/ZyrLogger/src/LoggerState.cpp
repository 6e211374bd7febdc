#include "LoggerState.h"

#include <Poco/Logger.h>

#include <algorithm>
#include <atomic>

#include <pthread.h>

namespace Zyr {

namespace {

constinit std::atomic<bool> pocoIsShutDown = false;
constinit std::atomic<unsigned> forksSoFar = 0;
constinit thread_local int listenerDepth = 0;

constinit std::mutex livingMutex;

} // namespace

std::vector<Logger::State*>& Logger::State::living()
{
    // Never destroyed: loggers live and die during static destruction too.
    static auto& states = *new std::vector<State*>;
    return states;
}

Logger::State::State()
    : forks(forksSoFar)
{
    static const int counted = pthread_atfork(nullptr, nullptr, [] { ++forksSoFar; });
    static_cast<void>(counted);
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

void Logger::State::markShutDown() noexcept
{
    pocoIsShutDown.store(true, std::memory_order_release);
}

void Logger::State::shutPocoDown()
{
    markShutDown();
    if (forksSoFar > 0)
        return; // releasing an inherited chain would wait for a worker thread that this process does not have
    {
        // Whoever asked before the mark holds its logger's guard until it has its own reference to the chain.
        const std::lock_guard lock(livingMutex);
        for (State* state : living())
            const std::lock_guard passed(state->guard);
    }
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

bool Logger::State::isInsideAnyListener() noexcept
{
    return listenerDepth > 0;
}

Logger::State::ListenerCall::ListenerCall(State& loggerState, const QList<LogListener*>& registered,
                                          std::vector<const LogListener*>& served)
    : state(loggerState)
    , registeredListeners(registered)
{
    const std::lock_guard lock(state.guard);
    const auto next = std::find_if(registered.begin(), registered.end(), [&](const LogListener* candidate) {
        return candidate && std::find(served.begin(), served.end(), candidate) == served.end();
    });
    if (next == registered.end())
        return;
    served.push_back(*next);
    entry = state.callsUnderWay.insert(state.callsUnderWay.end(), *next);
    current = *next;
    ++listenerDepth;
}

Logger::State::ListenerCall::~ListenerCall()
{
    if (!current)
        return;
    --listenerDepth;
    const std::lock_guard lock(state.guard);
    state.callsUnderWay.erase(entry);
    state.listenerLeft.notify_all();
}

bool Logger::State::ListenerCall::isStillRegistered() const
{
    const std::lock_guard lock(state.guard);
    return registeredListeners.contains(current);
}

} // namespace Zyr
