// The last step of a record: to POCO and to the listeners; who listens.

#include <ZyrLogger/Logger.h>

#include "chain/LineFormatter.h"
#include "logger/LoggerPrivate.h"

#include <ZyrLogger/PocoMessage.h>

#include <Poco/Logger.h>

#include <new>

namespace Zyr {

Logger::LogListener::~LogListener() = default;

void Logger::LogListener::handleFormatedMessage(QString)
{
}

void Logger::writeMsgToLog(const PocoMessage& record)
{
    ChainUse use(*d->access);
    d->write(use, record);
}

void LoggerPrivate::write(ChainUse& use, const PocoMessage& record)
{
    Poco::Logger* const target = use.logger();
    if (!target)
        return;
    target->log(record);
    // A channel of the application's may have ended the chain.
    const bool hasListeners =
        rules.current().hasListeners && use.logger() && record.getPriority() <= use.logger()->getLevel();
    use.leave();
    if (hasListeners)
        callListeners(record);
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

void Logger::addExcludeFilter(QString filter)
{
    const Guard guard(d->chain.fieldsMutex);
    d->append(filter, excludeFilters);
}

void Logger::flushLog()
{
    d->repeats.flush();
}

} // namespace Zyr
