// How the writer ends: with everything in the file, or giving up what the store does not take.

#include "writer/LogWriter.h"

#include "store/LogProblem.h"
#include "writer/Patience.h"

#include <algorithm>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto compressionAtEnd = 1s;

} // namespace

/// Returns when all that was queued is in the file, or was given up. What others queue meanwhile is not waited for:
/// they may never stop.
void LogWriter::drain(Lock& lock)
{
    const std::uint64_t last = pushed();
    retryAt = {};
    work.notify_one();
    constexpr auto none = Clock::time_point::max();
    auto limit = none;
    ++waiting;
    while (hasWork() && (written < last || queue.isEmpty()) && !abandoned) {
        if (!running)
            start(lock);
        const auto now = Clock::now();
        auto until = now + lookInterval;
        if (!isStuck(now)) {
            limit = none;
        } else {
            if (limit == none)
                limit = Patience::limit(now);
            if (now >= limit) {
                giveUp(lock);
                break;
            }
            until = std::min(until, limit);
        }
        progress.wait_until(lock, until);
    }
    --waiting;
}

/// Counts exactly what is not in the file: the worker thread ends first, unless it hangs, when what it is just writing
/// counts as well.
void LogWriter::giveUp(Lock& lock)
{
    const std::string reason(stuckReason());
    abandoned = true;
    setShortWay();
    work.notify_one();
    progress.notify_all();
    while (wantingRoom > 0 || (running && Clock::now() < watch.limit()))
        progress.wait_until(lock, Clock::now() + lookInterval);
    const std::uint64_t count = queue.size() + lost;
    lost = 0;
    if (!running)
        queue.clear();
    const std::string path = settings.path;
    lock.unlock();
    if (count > 0)
        reportLogProblem(path, QString::number(count) + (count == 1 ? u" record was"_s : u" records were"_s) +
                                   u" given up: "_s + QString::fromStdString(reason));
    lock.lock();
}

void LogWriter::finish()
{
    Lock lock(gate);
    drain(lock);
    ++stopping;
    stopBy = Clock::now() + compressionAtEnd;
    work.notify_one();
    ++waiting;
    constexpr auto none = Clock::time_point::max();
    auto limit = none;
    bool needed = false; // by others, who go on logging
    bool hangs = false;
    while (running && !needed) {
        if (hasWork() && !abandoned) {
            drain(lock);
            needed = hasWork() && !abandoned;
            continue;
        }
        const auto now = Clock::now();
        if (now < watch.limit())
            limit = none;
        else if (limit == none)
            limit = abandoned ? now : Patience::limit(now);
        if (now >= limit) {
            hangs = true;
            break;
        }
        progress.wait_until(lock, now + lookInterval);
    }
    progress.wait(lock, [this] { return !starting; });
    --waiting;
    --stopping;
    hangs = hangs && running;
    if (needed || (running && !hangs)) // the latter: started by others meanwhile
        return;
    abandoned = leftBehind = hangs; // a later line finds a logger that begins anew, unless its thread is still away
    setShortWay();
    if (!std::exchange(joinable, false))
        return;
    const pthread_t last = thread;
    lock.unlock();
    if (hangs)
        ::pthread_detach(last);
    else
        ::pthread_join(last, nullptr);
}

} // namespace Zyr
