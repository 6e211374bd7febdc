// The link that formats: from a record to a line in the queue, and the end of the chain.

#include "chain/LineFormattingChannel.h"

#include "base/LineBuffer.h"

#include <Poco/Exception.h>

#include <new>
#include <utility>

namespace Zyr {

LineFormattingChannel::LineFormattingChannel(const Poco::AutoPtr<LineFormatter>& itsFormatter,
                                             const Poco::AutoPtr<LineQueueChannel>& target,
                                             std::shared_ptr<ChainAccess> itsAccess)
    : Poco::FormattingChannel(itsFormatter, target)
    , patterns(itsFormatter->patterns())
    , handle(target->writerHandle())
    , access(std::move(itsAccess))
{
}

LineFormattingChannel::~LineFormattingChannel()
{
    access->close();
    access->markReleased();
    // Those that found the way open, where it was the application that released the chain. What a thread that stays in
    // its use is working with outlives the chain.
    if (!access->waitForUses())
        // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): rather the end than a use of memory that is freed
        static_cast<void>(new std::pair(patterns, handle));
}

void LineFormattingChannel::log(const Poco::Message& message)
{
    LineBuffer line;
    try {
        patterns->current().format(message, line);
    } catch (const std::bad_alloc&) {
        return handle->writer->loseForWantOfMemory(); // as a line that the queue has no memory for
    }
    handle->writer->push(line.view());
}

void LineFormattingChannel::setProperty(const std::string& name, const std::string& value)
{
    if (name == "channel" || name == "formatter")
        throw Poco::PropertyNotSupportedException(name, "the links of a logger's chain stay as they are");
    Poco::FormattingChannel::setProperty(name, value);
}

} // namespace Zyr
