// The last step of a record's road: to POCO and to the listeners; and who listens.

#include <ZyrLogger/Logger.h>

#include "ListenerCall.h"

#include <ZyrLogger/PocoMessage.h>

#include <QtCore/QDateTime>

#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include <string>
#include <utility>
#include <vector>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

/// A record as listeners get it, made once for all of them.
struct Presentation
{
    QString priority;
    QString time;
    QString text;
    QString line;
};

QString priorityName(const Poco::PatternFormatter& formatter, Poco::Message::Priority priority)
{
    const QStringList names =
        QString::fromStdString(formatter.getProperty(Poco::PatternFormatter::PROP_PRIORITY_NAMES)).split(u',');
    const qsizetype index = static_cast<qsizetype>(priority) - 1; // the names begin with priority 1
    return index >= 0 && index < names.size() ? names.at(index) : u"?"_s;
}

Presentation present(const PocoMessage& record, Poco::PatternFormatter& formatter)
{
    std::string line;
    formatter.format(record, line);
    return {priorityName(formatter, record.getPriority()),
            QDateTime::fromMSecsSinceEpoch(record.getTime().epochMicroseconds() / 1000).toString(Qt::ISODateWithMs),
            QString::fromStdString(record.getText()), QString::fromStdString(line)};
}

} // namespace

Logger::LogListener::~LogListener() = default;

void Logger::LogListener::handleFormatedMessage(QString)
{
}

void Logger::writeMsgToLog(const PocoMessage& record)
{
    if (state->isChainGone())
        return;
    Poco::AutoPtr<Poco::Logger> target;
    Poco::AutoPtr<Poco::PatternFormatter> formatter;
    {
        const std::lock_guard lock(state->guard);
        target = state->shareLocked(pocoLogger);
        if (!listeners.isEmpty())
            formatter = state->shareLocked(patternFormatter);
    }
    if (!target)
        return;
    target->log(record);
    if (!formatter || record.getPriority() > target->getLevel())
        return;

    const Presentation presentation = present(record, *formatter);
    std::vector<const LogListener*> served;
    for (;;) {
        const ListenerCall call(*this, served);
        LogListener* const listener = call.listener();
        if (!listener)
            return;
        listener->handleMessage(presentation.priority, presentation.time, presentation.text);
        if (call.isStillRegistered())
            listener->handleFormatedMessage(presentation.line);
    }
}

void Logger::registerLogListener(LogListener* listener)
{
    const std::lock_guard lock(state->guard);
    if (!listeners.contains(listener))
        listeners.append(listener);
}

void Logger::unregisterLogListener(LogListener* listener)
{
    std::unique_lock lock(state->guard);
    listeners.removeAll(listener);
    // Two listeners that each unregister the other from inside a callback would wait for each other for ever.
    // In a forked child nobody ends the calls that other threads were in.
    if (!ListenerCall::isUnderWayHere() && !state->isInherited())
        state->listenerLeft.wait(lock, [&] { return !state->isInside(listener); });
}

void Logger::addExcludeFilter(QString filter)
{
    const std::lock_guard lock(state->guard);
    excludeFilters.append(std::move(filter));
}

} // namespace Zyr
