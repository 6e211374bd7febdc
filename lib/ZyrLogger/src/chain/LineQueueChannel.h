#pragma once

#include "chain/LogFileChannel.h"

#include <Poco/AsyncChannel.h>

#include <memory>

namespace Zyr {

/// The chain's queue: hands lines to the log file's worker thread.
///
/// It keeps POCO's interface, with the worker thread of the file channel in place of its own. The property "queueSize"
/// bounds the number of lines, as in POCO; the key of that name in the settings bounds their memory
/// (LogWriter::setLimits()), and both hold. Another target cannot be set.
class LineQueueChannel : public Poco::AsyncChannel
{
public:
    explicit LineQueueChannel(Poco::AutoPtr<LogFileChannel> target);

    /// Does nothing: the first line starts the thread.
    void open() override;
    /// Writes what is queued and ends the thread, until the next line.
    void close() override;
    void log(const Poco::Message& message) override;
    void setProperty(const std::string& name, const std::string& value) override;

    const std::shared_ptr<const LogFileChannel::WriterHandle>& writerHandle() const { return handle; }

protected:
    ~LineQueueChannel() override;
    void run() override;

private:
    const std::shared_ptr<const LogFileChannel::WriterHandle> handle;
};

} // namespace Zyr
