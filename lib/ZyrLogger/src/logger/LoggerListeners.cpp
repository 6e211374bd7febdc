// Who listens, and what listeners are called with.

#include <ZyrLogger/Logger.h>

#include "chain/LineFormatter.h"
#include "logger/LoggerPrivate.h"

#include <ZyrLogger/PocoMessage.h>

#include <new>

namespace Zyr {

Logger::LogListener::~LogListener() = default;

void Logger::LogListener::handleFormatedMessage(QString)
{
}

void LoggerPrivate::callListeners(const PocoMessage& record)
{
    if (const auto formatter = chain.shareFormatter())
        listenerCalls.callAll(ListenerRecord(record, formatter->patterns()->current()));
}

void Logger::registerLogListener(LogListener* listener)
{
    const Guard guard(d->chain.fieldsMutex);
    if (!listeners.contains(listener))
        d->append(listener, listeners);
}

void Logger::unregisterLogListener(LogListener* listener)
{
    {
        const Guard guard(d->chain.fieldsMutex);
        listeners.removeAll(listener);
        try {
            d->publishRules();
        } catch (const std::bad_alloc&) {
            // The rules may say that there are listeners where there are none.
        }
    }
    // In a forked child nobody ends the calls that other threads were in.
    if (!d->isInherited())
        d->listenerCalls.waitUntilLeft(listener);
}

} // namespace Zyr
