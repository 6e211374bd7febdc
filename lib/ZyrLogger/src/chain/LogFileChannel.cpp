#include "LogFileChannel.h"

#include <ZyrTools/Misc.h>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds quietTime(10);

} // namespace

LogFileChannel::~LogFileChannel() = default;

void LogFileChannel::open()
{
    const std::lock_guard lock(channelMutex);
    Poco::FileChannel::open();
}

void LogFileChannel::close()
{
    const std::lock_guard lock(channelMutex);
    Poco::FileChannel::close();
}

void LogFileChannel::log(const Poco::Message& message)
{
    const std::lock_guard lock(channelMutex);
    try {
        Poco::FileChannel::log(message);
    } catch (...) {
        // Not every failure is one of its own: while a disk is full, small records may still fit into buffers.
        const auto now = std::chrono::steady_clock::now();
        if (!lastFailure || now - *lastFailure > quietTime)
            Misc::reportProblem(u"log file '"_s + QString::fromStdString(path()) + u'\'',
                                u"records are lost until it can be written again: "_s + Misc::currentExceptionText());
        lastFailure = now;
        Poco::FileChannel::close();
    }
}

void LogFileChannel::setProperty(const std::string& name, const std::string& value)
{
    const std::lock_guard lock(channelMutex);
    if (name == PROP_PATH)
        Poco::FileChannel::close();
    Poco::FileChannel::setProperty(name, value);
}

std::string LogFileChannel::getProperty(const std::string& name) const
{
    const std::lock_guard lock(channelMutex);
    return Poco::FileChannel::getProperty(name);
}

} // namespace Zyr
