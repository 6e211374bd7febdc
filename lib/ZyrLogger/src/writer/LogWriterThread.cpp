// The writer's worker thread.

#include "writer/LogWriter.h"

#include "base/LineBuffer.h"
#include "line/LinePatterns.h"

#include <Poco/Message.h>

#include <algorithm>
#include <utility>

namespace Zyr {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t batchBytes = 256 * 1024;
constexpr auto minCopyWait = 50us;
constexpr auto maxCopyWait = 10ms;

} // namespace

void* LogWriter::enter(void* self)
{
    const std::unique_ptr<std::shared_ptr<LogWriter>> writer(static_cast<std::shared_ptr<LogWriter>*>(self));
    ::pthread_setname_np(::pthread_self(), "LogWriter");
    (*writer)->run();
    return nullptr;
}

void LogWriter::run()
{
    const Guard guard(mutex);
    while (worker.thread() == Thread::Starting) { // start() is just about to say so
        const Counted waits(waiting);
        progress.wait(mutex);
    }
    do {
        updateFastPath();
        for (bool goesOn = true; goesOn && !worker.hasGivenUp();) {
            try {
                goesOn = step();
            } catch (...) { // out of memory: nothing may be done here that needs some
                afterWrite(std::make_error_code(std::errc::not_enough_memory));
                goesOn = hasWork() || !stopping; // what is requested waits for the next thread
                if (goesOn && !worker.hasGivenUp())
                    wait(health.retryTime());
            }
        }
        {
            const Unlocked unlocked(mutex);
            store->close();
        }
        queue.openFastPath(false);
    } while (hasWork() && !worker.hasGivenUp()); // lines that came meanwhile woke nobody
    if (worker.thread() == Thread::Detached) {   // it came back after all: what was queued was counted as given up
        queue.clear();
        worker.enter(Thread::None);
        worker.enter(Duty::Working);
    } else {
        worker.enter(Thread::Ended);
    }
    progress.notifyAll();
}

/// One step of the work, or a rest until there is more. False when the thread is to end.
bool LogWriter::step()
{
    const bool held = changes > 0;
    if (requested && !held) {
        takeRequests();
        return true;
    }
    if (hasWork()) {
        if (held || Clock::now() < health.retryTime()) {
            wait(held ? std::nullopt : std::optional(health.retryTime()));
            return true;
        }
        if (store->maintenanceDue() != LineStore::Maintenance::GoesFirst)
            isLossDue() ? writeLoss() : writeLines();
    } else if (stopping && (store->maintenanceDue() == LineStore::Maintenance::None || Clock::now() >= stopBy)) {
        return false;
    }

    if (store->maintenanceDue() != LineStore::Maintenance::None) {
        const Unlocked unlocked(mutex);
        store->maintain();
    } else if (closing && !hasWork()) { // mid-line, a pipe's reader would see a torn line and the end
        closing = false;
        const Unlocked unlocked(mutex);
        store->close();
    } else if (mayGather()) {
        gather();
    } else if (maySleep()) { // requests that came during the write did not wake this thread
        sleep();
    }
    return true;
}

/// A line that a pipe has taken in part goes on first.
bool LogWriter::isLossDue() const
{
    return !lossLine.empty() || queue.isEmpty() || (loss.isDue(written) && !store->isInLine());
}

void LogWriter::writeLines()
{
    const LineBatch batch = queue.front(batchBytes);
    if (batch.lines() == 0) { // the first line's thread was preempted between reserving and copying
        copyWait = std::clamp<Clock::duration>(copyWait * 2, minCopyWait, maxCopyWait);
        wait(Clock::now() + copyWait);
        return;
    }
    copyWait = {};
    LineStore::Written result;
    {
        const Unlocked unlocked(mutex);
        result = store->write(batch);
    }
    queue.pop(result.lines);
    written += result.lines;
    pace.wrote(result.lines, Clock::now());
    // A store that takes some lines works, however few: a pipe never takes more at a time. The next write tells.
    afterWrite(result.lines > 0 ? std::error_code() : result.error);
}

void LogWriter::writeLoss()
{
    const std::uint64_t records = loss.count();
    const std::string text = loss.text();
    const std::string source = lossSource;
    const std::shared_ptr<const LinePatterns> format = lossFormat;
    LineStore::Written result;
    {
        const Unlocked unlocked(mutex);
        if (lossLine.empty()) {
            LineBuffer line;
            if (format)
                format->current().format(Poco::Message(source, text, Poco::Message::PRIO_WARNING), line);
            else
                line.append(text);
            line.append("\n");
            lossLine = line.view();
            lossLineRecords = records;
        }
        const auto end = static_cast<std::uint32_t>(lossLine.size());
        LineBatch batch;
        batch.add({lossLine.data(), &end, 0, 1});
        result = store->write(batch);
    }
    if (result.lines == 1)
        loss.recorded(lossLineRecords);
    if (!store->isInLine())
        lossLine.clear();
    afterWrite(result.error);
}

/// What a write that failed or not means for those who wait.
void LogWriter::afterWrite(const std::error_code& error) noexcept
{
    returnMemory(); // before notifying those who wait for memory
    const auto now = Clock::now();
    bool reports = false;
    if (!error) {
        health.succeeded();
        loss.schedule(pushed());
    } else {
        health.failed(error, now);
        loss.postpone(); // first what is held now
        // A full pipe only has a slow reader: not reported.
        reports = error != std::errc::resource_unavailable_try_again && health.shouldReport(now);
    }
    if (waiting > 0)
        progress.notifyAll();
    if (reports)
        report("cannot be written, records wait: ");
}

/// Whether lines may wait for the next write: nobody waits for them.
bool LogWriter::mayGather() const
{
    return pace.gatheringTime() > Clock::duration::zero() && !requested && changes == 0 && waiting == 0 && !stopping &&
           !worker.hasGivenUp() && !health.isFailing() && loss.isEmpty() && !settings.flush && !hasGathered();
}

/// Lets lines gather, without having each of them wake this thread.
void LogWriter::gather()
{
    worker.enter(Rest::Gathering);
    work.waitUntil(mutex, Clock::now() + pace.gatheringTime());
    worker.enter(Rest::Busy);
    pace.gathered(queue.size());
}

void LogWriter::sleep()
{
    if (returnSpareMemory() && !maySleep())
        return;
    worker.enter(Rest::Sleeping);
    if (maySleep()) // still, now that lines wake this thread
        work.wait(mutex);
    worker.enter(Rest::Busy);
    pace.woken(Clock::now());
}

bool LogWriter::maySleep() const
{
    return !hasWork() && !stopping && !worker.hasGivenUp() && (!requested || changes > 0);
}

/// Not woken by lines.
void LogWriter::wait(std::optional<Clock::time_point> until)
{
    if (returnSpareMemory())
        return; // there may be something to do by now
    worker.enter(Rest::Waiting);
    if (until)
        work.waitUntil(mutex, *until);
    else
        work.wait(mutex);
    worker.enter(Rest::Busy);
}

/// False when there is none to return; else the mutex was released meanwhile.
bool LogWriter::returnSpareMemory()
{
    if (!queue.isEmpty())
        return false;
    queue.trim();
    return returnMemory();
}

} // namespace Zyr
