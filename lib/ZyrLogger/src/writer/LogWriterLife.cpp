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

using namespace std::chrono_literals;

namespace {

constexpr std::size_t stackSize = 512 * 1024;
constexpr auto maxCompressionAtEnd = 1s;
constexpr auto noLimit = CallWatch::Clock::time_point::max();

} // namespace

/// There is a thread afterwards, unless the system has none now.
void LogWriter::start()
{
    while (worker.thread() == Thread::Starting) {
        const Counted waits(waiting);
        progress.wait(mutex);
    }
    if (worker.isAlive())
        return;
    const int error = startThread();
    if (waiting > 0)
        progress.notifyAll();
    startFailed = error != 0;
    if (!startFailed) {
        health.retryNow();
        return;
    }
    updateFastPath();
    const auto now = Clock::now();
    health.failed({error, std::system_category()}, now);
    if (health.shouldReport(now))
        report("no thread to write it, records wait: ");
}

/// For callers that wait for lines to be written: pauses when the system had no thread the last time. Returns when to
/// call it again, at the latest.
LogWriter::Clock::time_point LogWriter::startIfDue()
{
    if (!worker.isAlive() && (!startFailed || Clock::now() >= health.retryTime()))
        start();
    return worker.isAlive() ? noLimit : health.retryTime();
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
    const Counted waits(waiting);
    while (hasWork() && (written < last || queue.isEmpty()) && !worker.hasGivenUp()) {
        const auto startTime = startIfDue();
        const auto now = Clock::now();
        auto until = std::min<Clock::time_point>(now + lookInterval, startTime);
        if (!isStuck(now)) {
            limit = noLimit;
        } else {
            if (limit == noLimit)
                limit = ShutdownDeadline::limit(now);
            if (now >= limit)
                return giveUp();
            until = std::min(until, limit);
        }
        progress.waitUntil(mutex, until);
    }
}

/// Counts exactly what is not in the file: the worker thread ends first, unless it hangs, when what it is just writing
/// counts as well. Nobody makes the writer begin anew before.
void LogWriter::giveUp()
{
    worker.enter(Duty::GivenUp);
    updateFastPath();
    work.notifyOne();
    progress.notifyAll();
    std::uint64_t count = 0;
    {
        const Counted counts(givingUp);
        while (wantingRoom > 0 || (worker.isAlive() && Clock::now() < watch.limit()))
            progress.waitUntil(mutex, Clock::now() + lookInterval);
        count = queue.size() + loss.giveUp();
        if (!worker.isAlive())
            queue.clear();
    }
    progress.notifyAll();
    if (count > 0)
        report(count == 1 ? " record was given up: " : " records were given up: ", count);
}

void LogWriter::finish()
{
    const Guard guard(mutex);
    drain();
    bool needed = false; // by others, who go on logging
    bool hangs = false;
    {
        const Counted stops(stopping);
        const Counted waits(waiting);
        stopBy = Clock::now() + maxCompressionAtEnd;
        work.notifyOne();
        auto limit = noLimit;
        while ((worker.isAlive() || givingUp > 0) && !needed && !hangs) {
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
    }
    if (needed || worker.thread() == Thread::Detached)
        return;
    const pthread_t last = thread;
    if (worker.thread() == Thread::Running) {
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

/// Says the problem and its reason on standard error, as far as there is memory for that. The number of records, if
/// any, comes first.
void LogWriter::report(const char* problem, std::uint64_t records) noexcept
{
    try {
        const std::string path = settings.path;
        const std::string text = (records > 0 ? std::to_string(records) : "") + problem + std::string(stuckReason());
        const Unlocked unlocked(mutex);
        reportLogProblem(path, QString::fromStdString(text));
    } catch (const std::bad_alloc&) {
        // Then not.
    }
}

} // namespace Zyr
