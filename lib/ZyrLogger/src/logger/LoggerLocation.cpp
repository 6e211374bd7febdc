// Where and how the log file is written, changed while the program runs.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerState.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>

#include <Poco/FileChannel.h>

namespace Zyr {

QString Logger::getLogFilePath()
{
    auto channel = state->share(fileChannel);
    return channel ? QString::fromStdString(channel->getProperty(Poco::FileChannel::PROP_PATH)) : QString();
}

void Logger::setLogFilePath(QString path)
{
    if (!state->isUsable())
        return;
    Misc::checkDirectory(QFileInfo(path).path());
    setLogFileProperty(QString::fromStdString(Poco::FileChannel::PROP_PATH), path);
}

void Logger::setLogFileProperty(QString name, QString value)
{
    if (state->isChainGone())
        return;
    watchSettings();
    const std::lock_guard turn(state->reload);
    auto channel = state->shareFile();
    if (!channel)
        return;
    const LogFileChannel::Change change(*channel);
    channel->close();
    channel->setProperty(name.toStdString(), value.toStdString());
    channel->open();
}

} // namespace Zyr
