#include "LineQueueChannel.h"

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

LineQueueChannel::LineQueueChannel(const Poco::AutoPtr<LogFileChannel>& target)
    : Poco::AsyncChannel(target, Poco::Thread::PRIO_NORMAL)
    , file(target)
{
}

LineQueueChannel::~LineQueueChannel()
{
    try {
        file->writer().finish();
    } catch (...) {
        // A destructor always finishes.
    }
}

void LineQueueChannel::open()
{
}

void LineQueueChannel::close()
{
    file->writer().finish();
}

void LineQueueChannel::log(const Poco::Message& message)
{
    log(std::string_view(message.getText()));
}

void LineQueueChannel::setProperty(const std::string& name, const std::string& value)
{
    if (name == "queueSize")
        file->writer().setLineLimit(lineLimit(value));
    else if (name == "channel")
        throw Poco::PropertyNotSupportedException(name, "the queue belongs to the log file");
    else
        Poco::AsyncChannel::setProperty(name, value); // the priority, which is the same for all threads on Linux
}

void LineQueueChannel::run()
{
}

} // namespace Zyr
