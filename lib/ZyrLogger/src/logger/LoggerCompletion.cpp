// From out() to the record.

#include <ZyrLogger/Logger.h>

#include "base/VectorRegisters.h"
#include "caller/CallerThread.h"
#include "caller/CompletedText.h"
#include "logger/LoggerPrivate.h"
#include "system/StandardOutput.h"

#include <ZyrLogger/PocoMessage.h>

#include <Poco/Logger.h>

#include <memory>
#include <new>

namespace Zyr {

using namespace Qt::StringLiterals;

LogMessage& Logger::out(unsigned char level, const QString& text, const char* file, int line)
{
    auto message = std::make_unique<LogMessage>(level, text, file, line);
    cleanVectorRegisters();
    if (d->chain.isUsable())
        message->setCompleter(this);
    else
        StandardOutput::printLine(u"Invalid logger - "_s + text);
    return *message.release();
}

void Logger::completeMessage(LogMessage& message)
{
    ChainUse use(*d->access);
    const Poco::Logger* const target = use.logger();
    if (!target)
        return;
    const CompletionRules& rules = d->rules.current();
    const int priority = priorityOf(message.level);
    const bool convertsItself = hasOwnConversions(message);
    if (!rules.suppressRepeats) { // repeats are counted below the level too
        int level = target->getLevel();
        while (d->access->noteLevel(level))
            level = target->getLevel();
        if (priority > level && !convertsItself)
            return;
    }

    bool isHandedOn = false; // to the chain, which counts what it loses itself
    try {
        CallerThread* const thread = CallerThread::current();
        Record record(thread, target->name());
        if (!completeText(message, rules.filters, convertsItself ? nullptr : thread, record.text()))
            return;
        record.useText();
        const QByteArray sourceFile = thread ? thread->sourceNames.encode(message.file) : message.file.toUtf8();
        PocoMessage& poco = record.message();
        poco.setPriority(static_cast<Poco::Message::Priority>(priority));
        poco.setTime(message.timestamp);
        poco.setSourceFile(sourceFile.constData());
        poco.setSourceLine(message.line);

        if (!rules.suppressRepeats) {
            isHandedOn = true;
            return d->write(use, poco);
        }
        const RepeatLimits limits = rules.limits;
        use.leave();
        if (!d->repeats.admit(poco, sourceFile, limits))
            return;
        isHandedOn = true;
        writeMsgToLog(poco);
    } catch (const std::bad_alloc&) {
        if (!isHandedOn)
            d->loseRecord(priority);
        throw;
    }
}

} // namespace Zyr
