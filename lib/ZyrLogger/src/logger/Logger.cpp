// The logger object: how it begins, the main logger, and how it ends.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerState.h"
#include "logger/OwnEntries.h"
#include "writer/Patience.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>
#include <QtCore/QScopeGuard>
#include <QtCore/QScopedValueRollback>
#include <QtCore/QStandardPaths>
#include <QtCore/QThread>

#include <Poco/AsyncChannel.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView mainLoggerName = u"MainLogger";

/// How long the worker thread gets to write what is queued before the chain is taken apart.
constexpr unsigned long drainMilliseconds = 1000;

QString logFileNameOrDefault(const QString& name)
{
    return name.isEmpty() ? Misc::applicationName() + u".log"_s : name;
}

} // namespace

Logger::Logger(QString name, QString logFileName, QString settingsFileName)
    : Logger(std::move(name), logFileName, settingsFileName, NotStarted())
{
    start(logFileName);
}

/// Nothing of this can call the application, unlike the first load of the settings.
Logger::Logger(QString name, const QString& logFileName, const QString& settingsFileName, NotStarted)
    : ConfigFileListener(u"_Log"_s, settingsFileName)
    , loggerName(std::move(name))
    , state(std::make_unique<State>(*this))
    , enabledPriority(state->access->enabledPriority())
{
    const QString directory =
        Misc::standardDirectory("QUADEL_CURRENT_LOG_LOCATION", QStandardPaths::GenericDataLocation);
    logFilePath = QFileInfo(directory + logFileNameOrDefault(logFileName)).absoluteFilePath();
}

void Logger::start(const QString& logFileName)
{
    if (state->isChainGone())
        return;
    Misc::checkDirectory(QFileInfo(logFilePath).absolutePath());
    state->isUnwatched = !startConfigFileWatcher();
    if (state->isUnwatched)
        out(Warning, u"Can not watch file '%1'"_s, OwnEntries::file, OwnEntries::cannotWatchLine)
            .arg(logFileNameOrDefault(logFileName))
            .endl();
}

/// For whoever changes the logger's settings himself: tries again to watch their file, where that failed.
void Logger::watchSettings()
{
    if (!state->isUnwatched.exchange(false))
        return;
    auto still = qScopeGuard([this] { state->isUnwatched = true; });
    if (startConfigFileWatcher())
        still.dismiss();
}

Logger::~Logger()
{
    retire();
}

/// The main logger. Only its end belongs to static destruction: the object itself stays, so that whoever logs after
/// that still finds a logger, one whose operations are harmless.
class Logger::Main
{
public:
    Main() { new (storage) Logger(mainLoggerName.toString(), QString(), QString(), NotStarted()); }
    ~Main()
    {
        Patience::programEnds();
        logger().retire();
        State::markShutDown();
    }
    Main(const Main&) = delete;
    Main& operator=(const Main&) = delete;

    static Logger& logger() { return *std::launder(reinterpret_cast<Logger*>(storage)); }

    /// Once per process, or until it does not throw; never in a child that was forked before. The thread that is in it
    /// already passes: while the settings are loaded, a message handler of Qt may log, and finds a logger that is not
    /// usable yet.
    static void start()
    {
        static constinit thread_local bool starting = false;
        if (starting || logger().state->isInherited())
            return;
        static constinit std::mutex first;
        const std::lock_guard lock(first);
        if (mainLogger.load(std::memory_order_relaxed))
            return;
        const QScopedValueRollback mark(starting, true);
        logger().start(QString());
        mainLogger.store(&logger(), std::memory_order_release);
    }

private:
    alignas(Logger) static inline std::byte storage[sizeof(Logger)];
};

constinit std::atomic<Logger*> Logger::mainLogger = nullptr;

Logger& Logger::makeInstance()
{
    static constinit std::atomic<bool> made = false;
    if (!made.load(std::memory_order_acquire)) {
        State::callWithoutFork([] {
            static const Main main;
            made.store(true, std::memory_order_release);
        });
    }
    Main::start();
    return Main::logger();
}

bool Logger::isMainLogger() const
{
    return loggerName == mainLoggerName;
}

void Logger::flushFinal()
{
    instance().out(System, u"Logger shutdown"_s, OwnEntries::file, OwnEntries::shutdownLine).endl();
    if (auto channel = state->share(fileChannel))
        channel->close();
    if (isMainLogger() || State::isShutDown())
        return;
    Patience::programEnds();
    State::shutPocoDown();
}

/// What the destructor does; the object is whole afterwards, without a chain.
void Logger::retire() noexcept
{
    state->isUnwatched = false;
    stopConfigFileWatcher();
    try {
        if (!state->isInherited()) {
            if (closeChain() && isMainLogger())
                State::shutPocoDown();
        } else if (auto channel = state->shareFile()) {
            channel->writer().finish(); // what was logged in this process; the chain itself is kept for good
        }
    } catch (...) {
        // A destructor always finishes.
    }
}

/// Returns whether the chain was complete.
bool Logger::closeChain()
{
    if (auto channel = state->shareFile()) {
        channel->close();
        QThread::msleep(drainMilliseconds);
        // Before POCO lets go of the chain, which it does under its own lock.
        channel->writer().finish();
    }
    // These end the chain when they go, after that lock has been left.
    const auto link = state->share(formattingChannel);
    if (const auto registered = state->share(pocoLogger)) {
        state->access->close();
        state->keepUsedChain();
        try {
            State::callRegistry([&] { Poco::Logger::destroy(loggerName.toStdString()); });
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
    // Each link that is there took over the references to those before it.
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
    state->publishChain();
}

} // namespace Zyr
