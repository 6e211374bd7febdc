#include "chain/LineFormattingChannel.h"

#include "chain/format/LineBuffer.h"

#include <Poco/Exception.h>

#include <utility>

namespace Zyr {

LineFormattingChannel::LineFormattingChannel(const Poco::AutoPtr<LineFormatter>& itsFormatter,
                                             const Poco::AutoPtr<LineQueueChannel>& target,
                                             std::shared_ptr<std::atomic<bool>> released)
    : Poco::FormattingChannel(itsFormatter, target)
    , patterns(itsFormatter->patterns())
    , lines(target->sharedLines())
    , ended(std::move(released))
{
}

LineFormattingChannel::~LineFormattingChannel()
{
    ended->store(true, std::memory_order_release);
}

void LineFormattingChannel::log(const Poco::Message& message)
{
    LineBuffer line;
    patterns->inForce().format(message, line);
    lines->writer->push(line.view());
}

void LineFormattingChannel::setProperty(const std::string& name, const std::string& value)
{
    if (name == "channel" || name == "formatter")
        throw Poco::PropertyNotSupportedException(name, "the links of a logger's chain stay as they are");
    Poco::FormattingChannel::setProperty(name, value);
}

} // namespace Zyr
