#pragma once

#include <Poco/FileChannel.h>

#include <chrono>
#include <mutex>
#include <optional>

namespace Zyr {

/// The last link of the chain: POCO's file channel, made safe to reconfigure while the worker thread writes.
///
/// POCO's own opens the file and writes to it under two separate locks, so that a close in between is a null pointer;
/// after a failed write its stream stays failed for good; and a new path only takes effect if nothing was written
/// between closing and opening.
class LogFileChannel : public Poco::FileChannel
{
public:
    void open() override;
    void close() override;

    /// Never throws, since an exception would end the worker thread: a record that cannot be written is lost. The first
    /// such failure after a quiet time is reported on standard error.
    void log(const Poco::Message& message) override;

    void setProperty(const std::string& name, const std::string& value) override;
    std::string getProperty(const std::string& name) const override;

protected:
    ~LogFileChannel() override;

private:
    mutable std::recursive_mutex channelMutex; // recursive: the base's log() calls open()
    std::optional<std::chrono::steady_clock::time_point> lastFailure;
};

} // namespace Zyr
