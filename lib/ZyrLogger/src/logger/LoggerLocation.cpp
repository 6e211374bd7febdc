// Where and how the log file is written, changed while the program runs.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerPrivate.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>

#include <Poco/FileChannel.h>

namespace Zyr {

QString Logger::getLogFilePath()
{
    auto channel = d->chain.shareFile();
    return channel ? QString::fromStdString(channel->getProperty(Poco::FileChannel::PROP_PATH)) : QString();
}

void Logger::setLogFilePath(QString path)
{
    if (!d->chain.isUsable())
        return;
    Misc::checkDirectory(QFileInfo(path).path());
    setLogFileProperty(QString::fromStdString(Poco::FileChannel::PROP_PATH), path);
}

void Logger::setLogFileProperty(QString name, QString value)
{
    if (d->chain.isGone())
        return;
    d->watchSettings();
    const std::lock_guard lock(d->reloadMutex);
    auto channel = d->chain.shareFile();
    if (!channel)
        return;
    const LogFileChannel::Change change(*channel);
    channel->close();
    channel->setProperty(name.toStdString(), value.toStdString());
    channel->open();
}

} // namespace Zyr
