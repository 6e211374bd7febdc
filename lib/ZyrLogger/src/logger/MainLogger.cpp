// How the main logger begins and ends.

#include "logger/MainLogger.h"

#include "base/Mutex.h"
#include "logger/LoggerPrivate.h"
#include "writer/ShutdownDeadline.h"

#include <QtCore/QScopedValueRollback>

#include <atomic>
#include <new>

namespace Zyr {

alignas(Logger) constinit std::byte MainLogger::storage[sizeof(Logger)] = {};

MainLogger::MainLogger()
{
    new (storage) Logger(name.toString(), QString(), QString(), Logger::NotStarted());
}

MainLogger::~MainLogger()
{
    ShutdownDeadline::programEnds();
    logger().d->retire();
    LoggerRegistry::markShutDown();
}

Logger& MainLogger::logger()
{
    return *std::launder(reinterpret_cast<Logger*>(storage));
}

/// Takes place once per process, or until it does not throw; never in a child that was forked before. A nested call
/// returns at once: while the settings are loaded, a message handler of Qt may log, and finds a logger that is not
/// usable yet.
void MainLogger::start()
{
    static constinit thread_local bool starting = false;
    if (starting || logger().d->isInherited())
        return;
    static constinit Mutex startMutex; // guards no field
    const Guard guard(startMutex);
    if (Logger::mainLogger.load(std::memory_order_relaxed))
        return;
    const QScopedValueRollback mark(starting, true);
    logger().d->start(QString());
    Logger::mainLogger.store(&logger(), std::memory_order_release);
}

Logger& MainLogger::instance()
{
    static constinit std::atomic<bool> made = false;
    if (!made.load(std::memory_order_acquire)) {
        LoggerRegistry::callWithoutFork([] {
            static const MainLogger main;
            made.store(true, std::memory_order_release);
        });
    }
    start();
    return logger();
}

} // namespace Zyr
