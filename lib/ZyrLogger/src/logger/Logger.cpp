// The logger object: how it begins and ends.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerPrivate.h"
#include "logger/MainLogger.h"
#include "logger/OwnEntries.h"
#include "writer/ShutdownDeadline.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>
#include <QtCore/QStandardPaths>

#include <Poco/FileChannel.h>

#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;

// What instance(), which is inline, relies on. Beside the destructor, since the check of the ABI sees the types of
// those members alone that are defined where the class's vtable is.
constinit std::atomic<Logger*> Logger::mainLogger = nullptr;

Logger& Logger::makeInstance()
{
    return MainLogger::instance();
}

Logger::Logger(QString name, QString logFileName, QString settingsFileName)
    : Logger(std::move(name), logFileName, settingsFileName, NotStarted())
{
    d->start(logFileName);
}

/// Nothing of this can call the application, unlike the first load of the settings.
Logger::Logger(QString name, const QString& logFileName, const QString& settingsFileName, NotStarted)
    : ConfigFileListener(u"_Log"_s, settingsFileName)
    , loggerName(std::move(name))
    , d(std::make_unique<LoggerPrivate>(*this))
    , enabledPriority(d->access->enabledPriority())
{
    const QString directory =
        Misc::standardDirectory("QUADEL_CURRENT_LOG_LOCATION", QStandardPaths::GenericDataLocation);
    logFilePath = QFileInfo(directory + LoggerPrivate::logFileNameOrDefault(logFileName)).absoluteFilePath();
}

Logger::~Logger()
{
    d->retire();
}

void Logger::flushFinal()
{
    instance().out(System, u"Logger shutdown"_s, OwnEntries::file, OwnEntries::shutdownLine).endl();
    if (auto channel = d->chain.shareFile())
        channel->close();
    if (d->isMainLogger() || LoggerRegistry::isShutDown())
        return;
    ShutdownDeadline::programEnds();
    LoggerRegistry::shutPocoDown();
}

} // namespace Zyr
