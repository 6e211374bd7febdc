// How the writer's thread starts and ends: with everything in the file, or giving up what the store does not take.
#include "writer/LogWriter.h"

#include "store/LogProblem.h"
#include "system/BlockedSignals.h"
#include "writer/ShutdownDeadline.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t stackSize = 512 * 1024;
constexpr auto lookInterval = 500ms; // at which those who wait look whether the store hangs
constexpr auto maxCompressionAtEnd = 1s;
constexpr auto noLimit = CallWatch::Clock::time_point::max();

} // namespace

/// The thread may have ended again when this returns.
void LogWriter::start()
{
    ++waiting;
    while (worker.thread() == Thread::Starting)
        progress.wait(mutex);
    --waiting;
    if (worker.isAlive())
        return;
    const int error = startThread();
    if (waiting > 0)
        progress.notifyAll();
    if (error == 0) {
        health.retryNow();
        return;
    }
    updateFastPath();
    const auto now = Clock::now();
    health.failed({error, std::system_category()}, now);
    if (health.shouldReport(now))
        report("no thread to write it, records wait: ");
}

/// Returns what the system says. The mutex is released meanwhile.
int LogWriter::startThread()
{
    auto* const self = new (std::nothrow) std::shared_ptr<LogWriter>(shared_from_this()); // the thread's
    const bool hasFormer = worker.thread() == Thread::Ended;
    const pthread_t former = thread;
    pthread_t started = {};
    int error = ENOMEM;
    worker.enter(Thread::Starting);
    {
        const Unlocked unlocked(mutex);
        if (hasFormer)
            ::pthread_join(former, nullptr);
        pthread_attr_t attributes;
        ::pthread_attr_init(&attributes);
        ::pthread_attr_setstacksize(&attributes, stackSize);
        const BlockedSignals blocked;
        if (self)
            error = ::pthread_create(&started, &attributes, &enter, self);
        ::pthread_attr_destroy(&attributes);
        if (error != 0)
            delete self;
    }
    if (error == 0)
        thread = started;
    worker.enter(error == 0 ? Thread::Running : Thread::None);
    return error;
}

/// Returns when all that was queued is in the file, or was given up. What others queue meanwhile is not waited for:
/// they may never stop.
void LogWriter::drain()
{
    const std::uint64_t last = pushed();
    health.retryNow();
    work.notifyOne();
    auto limit = noLimit;
    ++waiting;
    while (hasWork() && (written < last || queue.isEmpty()) && !worker.hasGivenUp()) {
        if (!worker.isAlive())
            start();
        const auto now = Clock::now();
        auto until = now + lookInterval;
        if (!isStuck(now)) {
            limit = noLimit;
        } else {
            if (limit == noLimit)
                limit = ShutdownDeadline::limit(now);
            if (now >= limit) {
                giveUp();
                break;
            }
            until = std::min<Clock::time_point>(until, limit);
        }
        progress.waitUntil(mutex, until);
    }
    --waiting;
}

/// Counts exactly what is not in the file: the worker thread ends first, unless it hangs, when what it is just writing
/// counts as well.
void LogWriter::giveUp()
{
    const std::string reason(stuckReason());
    worker.enter(Duty::GivenUp);
    updateFastPath();
    work.notifyOne();
    progress.notifyAll();
    while (wantingRoom > 0 || (worker.isAlive() && Clock::now() < watch.limit()))
        progress.waitUntil(mutex, Clock::now() + lookInterval);
    const std::uint64_t count = queue.size() + loss.giveUp();
    if (!worker.isAlive())
        queue.clear();
    if (count == 0)
        return;
    const std::string path = settings.path;
    const Unlocked unlocked(mutex);
    reportLogProblem(path, QString::number(count) + (count == 1 ? u" record was"_s : u" records were"_s) +
                               u" given up: "_s + QString::fromStdString(reason));
}

void LogWriter::finish()
{
    const Guard guard(mutex);
    drain();
    ++stopping;
    stopBy = Clock::now() + maxCompressionAtEnd;
    work.notifyOne();
    ++waiting;
    auto limit = noLimit;
    bool needed = false; // by others, who go on logging
    bool hangs = false;
    while (worker.isAlive() && !needed && !hangs) {
        if (hasWork() && !worker.hasGivenUp()) {
            drain();
            needed = hasWork() && !worker.hasGivenUp();
            continue;
        }
        const auto now = Clock::now();
        if (now < watch.limit())
            limit = noLimit;
        else if (limit == noLimit)
            limit = worker.hasGivenUp() ? now : ShutdownDeadline::limit(now);
        hangs = now >= limit;
        if (!hangs)
            progress.waitUntil(mutex, now + lookInterval);
    }
    while (worker.thread() == Thread::Starting)
        progress.wait(mutex);
    --waiting;
    --stopping;
    if (needed || worker.thread() == Thread::Detached)
        return;
    const pthread_t last = thread;
    if (worker.thread() == Thread::Running) {
        if (!hangs)
            return; // started by others meanwhile
        worker.detach();
        updateFastPath();
        ::pthread_detach(last);
        return;
    }
    const bool hasEnded = worker.thread() == Thread::Ended;
    worker.enter(Duty::Working); // a later line finds a logger that begins anew
    updateFastPath();
    if (!hasEnded)
        return;
    worker.enter(Thread::None);
    const Unlocked unlocked(mutex);
    ::pthread_join(last, nullptr);
}

} // namespace Zyr
