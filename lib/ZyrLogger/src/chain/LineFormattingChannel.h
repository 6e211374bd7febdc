#pragma once

#include "chain/ChainAccess.h"
#include "chain/LineFormatter.h"
#include "chain/LineQueueChannel.h"

#include <Poco/FormattingChannel.h>

#include <memory>

namespace Zyr {

/// The link that POCO's logger writes to: formats a record and queues the line, without a copy of the record.
class LineFormattingChannel : public Poco::FormattingChannel
{
public:
    /// `itsAccess` is closed and marked when the chain ends.
    LineFormattingChannel(const Poco::AutoPtr<LineFormatter>& itsFormatter,
                          const Poco::AutoPtr<LineQueueChannel>& queue, std::shared_ptr<ChainAccess> itsAccess);

    void log(const Poco::Message& message) override;
    void setProperty(const std::string& name, const std::string& value) override;

protected:
    ~LineFormattingChannel() override;

private:
    /// In one piece, which is left behind when the chain ends while a thread stays in its use. Made beforehand, since a
    /// destructor must not need memory.
    struct Target
    {
        std::shared_ptr<const LinePatterns> patterns;
        std::shared_ptr<const LogFileChannel::WriterHandle> handle;
    };
    std::unique_ptr<const Target> target;
    const std::shared_ptr<ChainAccess> access;
};

} // namespace Zyr
