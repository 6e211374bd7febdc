// The queue as a link: POCO's properties and calls, handed on to the log file's writer.

#include "chain/LineQueueChannel.h"

#include <Poco/Exception.h>
#include <Poco/Message.h>
#include <Poco/NumberParser.h>

#include <limits>

namespace Zyr {

namespace {

/// As POCO reads its property: 0 for no limit.
std::size_t lineLimit(const std::string& value)
{
    if (value == "none" || value == "unlimited")
        return 0;
    const Poco::UInt64 limit = Poco::NumberParser::parseUnsigned64(value);
    return limit > std::numeric_limits<std::size_t>::max() ? 0 : static_cast<std::size_t>(limit);
}

} // namespace

LineQueueChannel::LineQueueChannel(Poco::AutoPtr<LogFileChannel> target)
    : Poco::AsyncChannel(target, Poco::Thread::PRIO_NORMAL)
    , handle(target->writerHandle())
{
}

LineQueueChannel::~LineQueueChannel()
{
    try {
        handle->writer->finish();
    } catch (...) {
        // A destructor always finishes.
    }
}

void LineQueueChannel::open()
{
}

void LineQueueChannel::close()
{
    handle->writer->finish();
}

void LineQueueChannel::log(const Poco::Message& message)
{
    handle->writer->push(message.getText());
}

void LineQueueChannel::setProperty(const std::string& name, const std::string& value)
{
    if (name == "queueSize")
        handle->writer->setLineLimit(lineLimit(value));
    else if (name == "channel")
        throw Poco::PropertyNotSupportedException(name, "the queue belongs to the log file");
    else
        Poco::AsyncChannel::setProperty(name, value); // the priority, which is the same for all threads on Linux
}

void LineQueueChannel::run()
{
}

} // namespace Zyr
