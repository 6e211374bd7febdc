#include "LogFileChannel.h"

#include <ZyrTools/Misc.h>

namespace Zyr {

using namespace Qt::StringLiterals;

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
        failing = false;
    } catch (...) {
        if (!failing)
            Misc::reportProblem(u"log file '"_s + QString::fromStdString(path()) + u'\'',
                                u"records are lost until it can be written again: "_s + Misc::currentExceptionText());
        failing = true;
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
