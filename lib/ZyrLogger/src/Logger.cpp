// The logger object: how it begins, the main logger, and how it ends.

#include <ZyrLogger/Logger.h>

#include "LoggerState.h"
#include "OwnEntries.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>
#include <QtCore/QStandardPaths>
#include <QtCore/QThread>

#include <Poco/AsyncChannel.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include <cstddef>
#include <new>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView mainLoggerName = u"MainLogger";

/// How long the worker thread gets to write what is queued before the chain is taken apart.
constexpr unsigned long drainMilliseconds = 1000;

/// Qt's static objects that late entries need are made before the first logger, and so outlive it.
void touchQtStatics()
{
    static_cast<void>(QLocale().toString(0.5));
    static_cast<void>(QDateTime::currentDateTime().toString(Qt::ISODateWithMs));
}

} // namespace

Logger::Logger(QString name, QString logFileName, QString settingsFileName)
    : ConfigFileListener(u"_Log"_s, settingsFileName)
    , loggerName(std::move(name))
    , state(std::make_unique<State>())
{
    if (State::isShutDown())
        return;
    touchQtStatics();

    const QString directory =
        Misc::standardDirectory("QUADEL_CURRENT_LOG_LOCATION", QStandardPaths::GenericDataLocation);
    const QString fileName = logFileName.isEmpty() ? Misc::applicationName() + u".log"_s : logFileName;
    logFilePath = QFileInfo(directory + fileName).absoluteFilePath();
    Misc::checkDirectory(QFileInfo(logFilePath).absolutePath());

    try {
        if (!startConfigFileWatcher())
            out(Warning, u"Can not watch file '%1'"_s, OwnEntries::file, OwnEntries::cannotWatchLine)
                .arg(fileName)
                .endl();
    } catch (...) {
        stopConfigFileWatcher();
        closeChain(); // the destructor will not run
        throw;
    }
}

Logger::~Logger()
{
    retire();
}

Logger& Logger::instance()
{
    // Only its own end belongs to static destruction: the object stays, so that whoever logs after that still finds a
    // logger, one whose operations are harmless.
    alignas(Logger) static std::byte storage[sizeof(Logger)];
    struct Life
    {
        Life() { new (storage) Logger(mainLoggerName.toString(), QString(), QString()); }
        ~Life() { logger().retire(); }
        static Logger& logger() { return *std::launder(reinterpret_cast<Logger*>(storage)); }
    };
    static const Life life;
    return Life::logger();
}

bool Logger::isMainLogger() const
{
    return loggerName == mainLoggerName;
}

bool Logger::isUsable() const
{
    return state->share(fileChannel);
}

void Logger::flushFinal()
{
    instance().out(System, u"Logger shutdown"_s, OwnEntries::file, OwnEntries::shutdownLine).endl();
    if (auto channel = state->share(fileChannel))
        channel->close();
    if (!isMainLogger() && !State::isShutDown())
        State::shutPocoDown();
}

/// What the destructor does; the object is whole afterwards, without a chain.
void Logger::retire() noexcept
{
    stopConfigFileWatcher();
    if (state->isInherited()) {
        // Taking the chain apart would wait for a worker thread that is not there: keep it for good.
        if (pocoLogger && !State::isShutDown())
            pocoLogger->duplicate();
    } else if (closeChain() && isMainLogger()) {
        try {
            State::shutPocoDown();
        } catch (...) {
            // A destructor always finishes.
        }
    }
    if (isMainLogger())
        State::markShutDown();
}

/// Returns whether the chain was complete.
bool Logger::closeChain() noexcept
{
    if (auto channel = state->share(fileChannel)) {
        try {
            channel->close();
        } catch (...) {
            // Closing is a courtesy to the worker thread; the wait and the rest come all the same.
        }
        channel = nullptr;
        QThread::msleep(drainMilliseconds);
    }
    // Where this is the last reference, its end writes what is queued still.
    if (const auto registered = state->share(pocoLogger)) {
        try {
            Poco::Logger::destroy(loggerName.toStdString());
        } catch (...) {
            // POCO knows no such logger any more.
        }
        forgetChain();
        return true;
    }
    releaseIncompleteChain();
    return false;
}

/// Releases the references that this logger still holds: those of a chain that POCO's registry never got.
void Logger::releaseIncompleteChain() noexcept
{
    if (!pocoLogger) {
        if (formattingChannel) {
            formattingChannel->release();
        } else {
            if (asyncChannel)
                asyncChannel->release();
            else if (fileChannel)
                fileChannel->release();
            if (patternFormatter)
                patternFormatter->release();
        }
    }
    forgetChain();
}

void Logger::forgetChain() noexcept
{
    const std::lock_guard lock(state->guard);
    fileChannel = nullptr;
    patternFormatter = nullptr;
    asyncChannel = nullptr;
    formattingChannel = nullptr;
    pocoLogger = nullptr;
}

} // namespace Zyr
