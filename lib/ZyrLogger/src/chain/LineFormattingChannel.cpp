// The link that formats: from a record to a line in the queue, and the end of the chain.

#include "chain/LineFormattingChannel.h"

#include "base/LineBuffer.h"

#include <Poco/Exception.h>

#include <new>
#include <utility>

namespace Zyr {

LineFormattingChannel::LineFormattingChannel(const Poco::AutoPtr<LineFormatter>& itsFormatter,
                                             const Poco::AutoPtr<LineQueueChannel>& queue,
                                             std::shared_ptr<ChainAccess> itsAccess)
    : Poco::FormattingChannel(itsFormatter, queue)
    , target(new Target{itsFormatter->patterns(), queue->writerHandle()})
    , access(std::move(itsAccess))
{
}

LineFormattingChannel::~LineFormattingChannel()
{
    access->close();
    access->markReleased();
    // For the uses that began before, where it was the application that released the chain.
    if (!access->waitForUses())
        static_cast<void>(target.release());
}

void LineFormattingChannel::log(const Poco::Message& message)
{
    const Target& used = *target; // may outlive this channel
    LineBuffer line;
    try {
        used.patterns->current().format(message, line);
    } catch (const std::bad_alloc&) {
        return used.handle->writer->loseForWantOfMemory(); // as a line that the queue has no memory for
    }
    used.handle->writer->push(line.view());
}

void LineFormattingChannel::setProperty(const std::string& name, const std::string& value)
{
    if (name == "channel" || name == "formatter")
        throw Poco::PropertyNotSupportedException(name, "the links of a logger's chain stay as they are");
    Poco::FormattingChannel::setProperty(name, value);
}

} // namespace Zyr
