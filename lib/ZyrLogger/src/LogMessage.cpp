#include <ZyrLogger/LogMessage.h>

#include <utility>

#include <cxxabi.h>

namespace Zyr {

LogMessage::Completer::Completer() = default;
LogMessage::Completer::~Completer() = default;

LogMessage::LogMessage(unsigned char messageLevel, const QString& messageText, const char* sourceFile, int sourceLine)
    : level(static_cast<LogLevel>(messageLevel))
    , text(messageText)
    , file(QString::fromUtf8(sourceFile))
    , line(sourceLine)
{
}

LogMessage::~LogMessage()
{
    clear();
}

void LogMessage::setCompleter(Completer* newCompleter)
{
    completer = newCompleter;
}

LogMessage& LogMessage::arg(QVariant value)
{
    if (!args)
        args = new QList<QVariant>;
    args->append(std::move(value));
    return *this;
}

LogMessage& LogMessage::topic(const QString& key, QVariant value)
{
    if (!topics)
        topics = new QMap<QString, QVariant>;
    topics->insert(key, std::move(value));
    return *this;
}

QVariant LogMessage::getTopic(const QString& key) const
{
    return topics ? topics->value(key) : QVariant();
}

void LogMessage::clear()
{
    level = Emerg;
    text.clear();
    file.clear();
    line = 0;
    delete std::exchange(args, nullptr);
    delete std::exchange(topics, nullptr);
}

void LogMessage::endl()
{
    if (completer) {
        try {
            completer->completeMessage(*this);
        } catch (const abi::__forced_unwind&) {
            delete this; // the thread is being cancelled, which must go on
            throw;
        } catch (...) {
            // Logging reports no error to the code that logs.
        }
    }
    delete this;
}

} // namespace Zyr
