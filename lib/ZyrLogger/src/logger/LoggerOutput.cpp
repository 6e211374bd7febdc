// The last step of a record, to POCO and to the listeners; and what stands between: filters, repeats that are held.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerPrivate.h"

#include <ZyrLogger/PocoMessage.h>

#include <Poco/Logger.h>

namespace Zyr {

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
