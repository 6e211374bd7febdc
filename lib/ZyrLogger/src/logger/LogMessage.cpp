// How an entry is filled, and how its memory and its lists are kept for the next ones.

#include <ZyrLogger/LogMessage.h>

#include "caller/CallerThread.h"

#include <utility>

#include <cxxabi.h>

namespace Zyr {

namespace {

QString decode(const char* sourceFile)
{
    if (!sourceFile || !*sourceFile)
        return {};
    CallerThread* const thread = CallerThread::current();
    return thread ? thread->sourceNames.decode(sourceFile) : QString::fromUtf8(sourceFile);
}

} // namespace

LogMessage::Completer::Completer() = default;
LogMessage::Completer::~Completer() = default;

LogMessage::LogMessage(unsigned char messageLevel, const QString& messageText, const char* sourceFile, int sourceLine)
    : level(static_cast<LogLevel>(messageLevel))
    , text(messageText)
    , file(decode(sourceFile))
    , line(sourceLine)
{
}

LogMessage::~LogMessage()
{
    releaseContainers();
}

void* LogMessage::operator new(std::size_t size)
{
    if (size == sizeof(LogMessage)) { // and not of a derived class
        if (CallerThread* const thread = CallerThread::current()) {
            if (void* const kept = thread->messages.takeBlock())
                return kept;
        }
    }
    return ::operator new(size);
}

void LogMessage::operator delete(void* memory, std::size_t size) noexcept
{
    if (size == sizeof(LogMessage)) {
        if (CallerThread* const thread = CallerThread::current(); thread && thread->messages.keepBlock(memory))
            return;
    }
    ::operator delete(memory);
}

void LogMessage::setCompleter(Completer* newCompleter)
{
    completer = newCompleter;
}

template <typename T>
LogMessage& LogMessage::emplace(T&& value)
{
    if (!args) {
        CallerThread* const thread = CallerThread::current();
        args = thread ? thread->messages.takeList() : new QList<QVariant>;
    }
    args->emplaceBack(std::forward<T>(value));
    return *this;
}

LogMessage& LogMessage::arg(QVariant value)
{
    return emplace(std::move(value));
}

LogMessage& LogMessage::append(int value)
{
    return emplace(value);
}

LogMessage& LogMessage::append(uint value)
{
    return emplace(value);
}

LogMessage& LogMessage::append(qlonglong value)
{
    return emplace(value);
}

LogMessage& LogMessage::append(qulonglong value)
{
    return emplace(value);
}

LogMessage& LogMessage::append(double value)
{
    return emplace(value);
}

LogMessage& LogMessage::append(const QString& value)
{
    return emplace(value);
}

LogMessage& LogMessage::topic(const QString& key, QVariant value)
{
    if (!topics)
        topics = new QMap<QString, QVariant>;
    topics->insert(key, value);
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
    releaseContainers();
}

void LogMessage::releaseContainers() noexcept
{
    if (QList<QVariant>* const list = std::exchange(args, nullptr)) {
        if (CallerThread* const thread = CallerThread::current())
            thread->messages.keepList(list);
        else
            delete list;
    }
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
