// The last step of a record's road: to POCO and to the listeners; and who listens.

#include <ZyrLogger/Logger.h>

#include "chain/LineFormatter.h"
#include "line/CalendarText.h"
#include "logger/ListenerCall.h"

#include <ZyrLogger/PocoMessage.h>

#include <QtCore/QDateTime>

#include <Poco/Logger.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <new>
#include <string_view>
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

QString toQString(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

/// The entry of that number, from 1 on; blanks belong to it.
QString priorityName(std::string_view names, int priority)
{
    for (int number = 1; priority > 0; ++number) {
        const std::size_t comma = names.find(',');
        if (number == priority)
            return toQString(names.substr(0, comma));
        if (comma == names.npos)
            break;
        names.remove_prefix(comma + 1);
    }
    return u"?"_s;
}

/// Local, as Qt writes it in ISO 8601 with milliseconds. Qt itself takes longer than all the rest of a record.
QString timeText(const Poco::Timestamp& time)
{
    const qint64 milliseconds = time.epochMicroseconds() / 1000;
    constexpr qint64 fourDigitYears = std::numeric_limits<std::int32_t>::max();
    if (milliseconds < 0 || milliseconds / 1000 > fourDigitYears)
        return QDateTime::fromMSecsSinceEpoch(milliseconds).toString(Qt::ISODateWithMs);
    const CalendarText& at = CalendarText::of(milliseconds / 1000, true);
    auto rest = static_cast<int>(milliseconds % 1000);
    char text[] = "yyyy-mm-ddThh:mm:ss.zzz";
    at.year().copy(text, 4);
    const char* const parts[] = {at.month, at.day, at.hour, at.minute, at.secondOfMinute};
    for (std::size_t i = 0; i < std::size(parts); ++i)
        std::copy_n(parts[i], 2, text + 5 + 3 * i);
    for (char* digit = std::end(text) - 2; *digit == 'z'; --digit, rest /= 10)
        *digit = char('0' + rest % 10);
    return QString::fromLatin1(text);
}

Presentation present(const PocoMessage& record, const LinePattern& pattern)
{
    LineBuffer line;
    pattern.format(record, line);
    return {priorityName(pattern.source().priorityNames, record.getPriority()), timeText(record.getTime()),
            toQString(record.getText()), toQString(line.view())};
}

} // namespace

Logger::LogListener::~LogListener() = default;

void Logger::LogListener::handleFormatedMessage(QString)
{
}

void Logger::writeMsgToLog(const PocoMessage& record)
{
    ChainUse use(*state->access);
    writeRecord(use, record);
}

/// Ends the use before listeners are called.
void Logger::writeRecord(ChainUse& use, const PocoMessage& record)
{
    Poco::Logger* const target = use.logger();
    if (!target)
        return;
    target->log(record);
    // A channel of the application's may have ended the chain.
    const bool isTold = state->rules().hasListeners && use.logger() && record.getPriority() <= use.logger()->getLevel();
    use.leave();
    if (isTold)
        tellListeners(record);
}

void Logger::tellListeners(const PocoMessage& record)
{
    const auto formatter = state->share(patternFormatter).unsafeCast<LineFormatter>();
    if (!formatter)
        return;
    const Presentation presentation = present(record, formatter->patterns()->inForce());
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
        state->append(listener, listeners);
}

void Logger::unregisterLogListener(LogListener* listener)
{
    std::unique_lock lock(state->guard);
    listeners.removeAll(listener);
    try {
        state->publishRules();
    } catch (const std::bad_alloc&) {
        // The rules may say that there are listeners where there are none.
    }
    // Two listeners that each unregister the other from inside a callback would wait for each other for ever.
    // In a forked child nobody ends the calls that other threads were in.
    if (!ListenerCall::isUnderWayHere() && !state->isInherited())
        state->listenerLeft.wait(lock, [&] { return !state->isInside(listener); });
}

void Logger::addExcludeFilter(QString filter)
{
    const std::lock_guard lock(state->guard);
    state->append(filter, excludeFilters);
}

} // namespace Zyr
