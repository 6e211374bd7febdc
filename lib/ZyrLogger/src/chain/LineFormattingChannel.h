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
                          const Poco::AutoPtr<LineQueueChannel>& target, std::shared_ptr<ChainAccess> itsAccess);

    void log(const Poco::Message& message) override;
    void setProperty(const std::string& name, const std::string& value) override;

protected:
    ~LineFormattingChannel() override;

private:
    const std::shared_ptr<const LinePatterns> patterns;
    const std::shared_ptr<const LogFileChannel::WriterHandle> handle;
    const std::shared_ptr<ChainAccess> access;
};

} // namespace Zyr
