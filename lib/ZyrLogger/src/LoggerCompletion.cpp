// From out() to the record: filters, level, record.

#include <ZyrLogger/Logger.h>

#include "LoggerState.h"
#include "StandardOutput.h"

#include <ZyrLogger/PocoMessage.h>

#include <QtCore/QFileInfo>
#include <QtCore/QThread>

#include <Poco/Logger.h>

#include <algorithm>
#include <string>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

struct LevelRule
{
    Poco::Message::Priority priority;
    QStringView prefix = {};
    bool named = true;
};

constexpr LevelRule unknownLevel = {Poco::Message::PRIO_FATAL, {}, false};

constexpr LevelRule levelRules[] = {
    /* Emerg    */ {Poco::Message::PRIO_FATAL},
    /* Alert    */ {Poco::Message::PRIO_FATAL},
    /* Critical */ {Poco::Message::PRIO_CRITICAL},
    /* Error    */ {Poco::Message::PRIO_ERROR},
    /* Warning  */ {Poco::Message::PRIO_WARNING},
    /* Notice   */ {Poco::Message::PRIO_NOTICE},
    /* Info     */ {Poco::Message::PRIO_INFORMATION},
    /* Debug    */ {Poco::Message::PRIO_DEBUG},
    /* Trace    */ {Poco::Message::PRIO_TRACE},
    /* 9        */ unknownLevel,
    /* 10       */ unknownLevel,
    /* System   */ {Poco::Message::PRIO_NOTICE, u"<SYS> "},
    /* Todo     */ {Poco::Message::PRIO_DEBUG, u"<TODO> "},
};

/// Marks the text as its level demands and returns the priority.
Poco::Message::Priority applyLevel(const LogMessage& message, QString& text)
{
    const LevelRule& rule = message.level < std::size(levelRules) ? levelRules[message.level] : unknownLevel;
    if (rule.named)
        text.prepend(rule.prefix);
    else
        text.prepend(u"Unknown log level %1 :"_s.arg(int(message.level)));
    if (message.level == Emerg)
        text += u" ["_s + QFileInfo(message.file).fileName() + u", Line "_s + QString::number(message.line) + u']';
    return rule.priority;
}

bool containsAny(const QString& text, const QStringList& filters)
{
    return std::any_of(filters.begin(), filters.end(), [&](const QString& filter) { return text.contains(filter); });
}

} // namespace

LogMessage& Logger::out(unsigned char level, const QString& text, const char* file, int line)
{
    auto message = std::make_unique<LogMessage>(level, text, file, line);
    if (isUsable())
        message->setCompleter(this);
    else
        StandardOutput::printLine(u"Invalid logger - "_s + text);
    return *message.release();
}

void Logger::completeMessage(LogMessage& message)
{
    if (state->isChainGone())
        return;
    Poco::AutoPtr<Poco::Logger> target;
    QStringList wanted;
    QStringList unwanted;
    RepeatLimits limits;
    bool suppressRepeats = false;
    {
        const std::lock_guard lock(state->guard);
        target = state->shareLocked(pocoLogger);
        wanted = textFilters;
        unwanted = excludeFilters;
        limits = {amountRepeatedMsg, maxRepeatedMsgCounter};
        suppressRepeats = checkRepeatedMsg && amountRepeatedMsg != 0;
    }
    if (!target)
        return;

    QString text = message.getStr();
    if (!wanted.isEmpty() && !containsAny(text, wanted))
        return;
    if (containsAny(text, unwanted))
        return;
    const Poco::Message::Priority priority = applyLevel(message, text);

    // constData(): a text ends at its first NUL.
    const QByteArray sourceFile = message.file.toUtf8();
    PocoMessage record(target->name(), text.toUtf8().constData(), priority, sourceFile.constData(), message.line);
    record.setTime(message.timestamp);
    record.setTid(static_cast<long>(reinterpret_cast<quintptr>(QThread::currentThreadId())));

    if (suppressRepeats)
        admit(record, sourceFile, limits);
    else
        writeMsgToLog(record);
}

} // namespace Zyr
