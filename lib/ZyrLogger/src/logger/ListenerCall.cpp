#include "logger/ListenerCall.h"

#include <ZyrLogger/PocoMessage.h>

#include <algorithm>

namespace Zyr {

namespace {

constinit thread_local int callsHere = 0;

} // namespace

Logger::ListenerCall::ListenerCall(Logger& itsLogger, std::vector<const LogListener*>& served)
    : logger(itsLogger)
{
    const std::lock_guard lock(logger.state->guard);
    const auto next = std::find_if(logger.listeners.begin(), logger.listeners.end(), [&](const LogListener* candidate) {
        return candidate && std::find(served.begin(), served.end(), candidate) == served.end();
    });
    if (next == logger.listeners.end())
        return;
    served.push_back(*next);
    auto& calls = logger.state->callsUnderWay;
    entry = calls.insert(calls.end(), *next);
    current = *next;
    ++callsHere;
}

Logger::ListenerCall::~ListenerCall()
{
    if (!current)
        return;
    --callsHere;
    const std::lock_guard lock(logger.state->guard);
    logger.state->callsUnderWay.erase(entry);
    logger.state->listenerLeft.notify_all();
}

bool Logger::ListenerCall::isStillRegistered() const
{
    const std::lock_guard lock(logger.state->guard);
    return logger.listeners.contains(current);
}

bool Logger::ListenerCall::isUnderWayHere() noexcept
{
    return callsHere > 0;
}

} // namespace Zyr
