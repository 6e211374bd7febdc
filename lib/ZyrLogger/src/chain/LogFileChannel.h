#pragma once

#include "base/Mutex.h"
#include "settings/FileProperties.h"
#include "writer/LogWriter.h"

#include <Poco/FileChannel.h>

#include <memory>

namespace Zyr {

/// The last link of the chain: the log file's properties, and requests to the thread that writes it.
///
/// open() opens the file on the calling thread, to report at once whether it can be opened, and hands it on. Nothing
/// else waits for a system call: the worker thread takes up requests between two writes.
class LogFileChannel : public Poco::FileChannel
{
public:
    /// While one of these lives, lines wait in the queue and the file is not touched: what is changed takes effect
    /// together.
    class Change
    {
    public:
        explicit Change(LogFileChannel& channel)
            : changed(channel)
        {
            changed.writer().beginChange();
        }
        ~Change() { changed.writer().endChange(); }
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;

    private:
        LogFileChannel& changed;
    };

    LogFileChannel();

    /// Throws Poco::OpenFileException. Begins a new file when the property "rotateOnOpen" is set.
    void open() override;
    /// The next record opens the file again.
    void close() override;
    void log(const Poco::Message& message) override;

    void setProperty(const std::string& name, const std::string& value) override;
    std::string getProperty(const std::string& name) const override;

    LogWriter& writer() const noexcept { return *handle->writer; }

    /// Where every link of the chain finds the writer: a forked child swaps it for all of them at once.
    struct WriterHandle
    {
        std::shared_ptr<LogWriter> writer;
    };
    std::shared_ptr<const WriterHandle> writerHandle() const { return handle; }

    // Around fork(), in functions that the check of locks cannot follow.
    void lock() ZYR_UNCHECKED_LOCKING;
    void unlock() ZYR_UNCHECKED_LOCKING;
    /// The child gets a writer of its own; the inherited one, whose thread is not there, is never touched again.
    void renewInChild() ZYR_UNCHECKED_LOCKING;

protected:
    ~LogFileChannel() override;

private:
    mutable Mutex propertiesMutex;
    FileProperties properties ZYR_GUARDED_BY(propertiesMutex);
    FileSettings current ZYR_GUARDED_BY(propertiesMutex); ///< with an absolute path
    const std::shared_ptr<WriterHandle> handle;
};

} // namespace Zyr
