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
constexpr auto shortestBackoff = 2ms;
constexpr std::chrono::milliseconds longestBackoff = 1s;
constexpr auto shortestCopyingTime = 50us;
constexpr auto longestCopyingTime = 10ms;

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
    Lock lock(gate);
    do {
        setShortWay();
        for (bool goesOn = true; goesOn && !abandoned;) {
            try {
                goesOn = turn(lock);
            } catch (...) { // out of memory: nothing may be done here that needs some
                if (!lock.owns_lock())
                    lock.lock();
                settle(std::make_error_code(std::errc::not_enough_memory), lock);
                goesOn = hasWork() || !stopping; // what is requested waits for the next thread
                if (goesOn && !abandoned)
                    work.wait_until(lock, retryAt);
            }
        }
        lock.unlock();
        file.close();
        lock.lock();
        queue.shut(true);
    } while (hasWork() && !abandoned); // what was queued meanwhile woke nobody
    running = false;
    if (std::exchange(leftBehind, false)) { // it came back after all: what was queued then was counted as given up
        queue.clear();
        abandoned = false;
    }
    progress.notify_all();
}

/// One step of the work, or a rest until there is more. False when the thread is to end.
bool LogWriter::turn(Lock& lock)
{
    const bool held = changes > 0;
    if (requested && !held) {
        takeRequests(lock);
        return true;
    }
    if (hasWork()) {
        if (held || Clock::now() < retryAt) {
            rest(lock, held ? std::nullopt : std::optional(retryAt));
            return true;
        }
        if (!file.mustCompressFirst())
            isLossDue() ? writeLoss(lock) : writeLines(lock);
    } else if (stopping && (!file.canCompress() || Clock::now() >= stopBy)) {
        return false;
    }

    if (file.canCompress()) {
        lock.unlock();
        file.compressSlice();
        lock.lock();
    } else if (closing && !hasWork()) { // in the midst of lines, a pipe's reader would find a broken one and the end
        closing = false;
        lock.unlock();
        file.close();
        lock.lock();
    } else if (mayGather()) {
        gather(lock);
    } else if (mayRest()) { // what was said while a line was written woke nobody
        sleep(lock);
    }
    return true;
}

/// A line that a pipe has taken in part goes on first.
bool LogWriter::isLossDue() const
{
    if (!lossLine.empty() || queue.isEmpty())
        return true;
    return lossAfter && written >= *lossAfter && !file.isInLine();
}

void LogWriter::takeRequests(Lock& lock)
{
    FileSettings wanted = requests.configure ? settings : FileSettings();
    Requests taken;
    std::swap(taken, requests);
    requested = false;
    closing = taken.close || (closing && !taken.adopt);
    lock.unlock();
    if (taken.look)
        file.lookAgain();
    try {
        if (taken.configure)
            file.configure(std::move(wanted));
        if (taken.adopt)
            file.adopt(std::move(taken.opened), taken.beginAnew);
    } catch (...) { // out of memory
        lock.lock();
        putBack(std::move(taken));
        lock.unlock(); // `taken` may close a file yet
        throw;
    }
    lock.lock();
}

/// To be taken again, but for what newer ones have replaced.
void LogWriter::putBack(Requests&& taken) noexcept
{
    requested = true;
    requests.configure |= taken.configure;
    if (!taken.adopt || requests.adopt || requests.close)
        return;
    requests.adopt = true;
    requests.beginAnew = taken.beginAnew;
    requests.opened = std::move(taken.opened);
    requests.close = taken.close;
}

void LogWriter::writeLines(Lock& lock)
{
    const LineBatch batch = queue.front(batchBytes);
    if (batch.lines() == 0) { // whoever copies the first one has lost its processor in between
        copyingTime = std::clamp<Clock::duration>(copyingTime * 2, shortestCopyingTime, longestCopyingTime);
        work.wait_until(lock, Clock::now() + copyingTime);
        return;
    }
    copyingTime = {};
    lock.unlock();
    const LogFile::Written result = file.write(batch);
    lock.lock();
    queue.pop(result.lines);
    pace.wrote(result.lines, Clock::now());
    written += result.lines;
    // A store that takes some lines works, however few: a pipe never takes more at a time. The next write tells.
    settle(result.lines > 0 ? std::error_code() : result.error, lock);
}

void LogWriter::writeLoss(Lock& lock)
{
    const std::uint64_t count = lost;
    const std::string text = std::to_string(count) + (count == 1 ? " record lost: " : " records lost: ") + lossReason;
    const std::string source = lossSource;
    const std::shared_ptr<const LinePatterns> format = lossFormat;
    lock.unlock();

    if (lossLine.empty()) {
        LineBuffer line;
        if (format)
            format->inForce().format(Poco::Message(source, text, Poco::Message::PRIO_WARNING), line);
        else
            line.append(text);
        line.append("\n");
        lossLine = line.view();
        lossTold = count;
    }
    const auto end = static_cast<std::uint32_t>(lossLine.size());
    LineBatch batch;
    batch.add({lossLine.data(), &end, 0, 1});
    const LogFile::Written result = file.write(batch);

    lock.lock();
    if (result.lines == 1) {
        lost -= std::min(lost, lossTold); // nothing when it was given up meanwhile
        lossAfter.reset();
    }
    if (!file.isInLine())
        lossLine.clear();
    settle(result.error, lock);
}

/// What a write that failed or not means for those who wait.
void LogWriter::settle(const std::error_code& error, Lock& lock) noexcept
{
    giveBackMemory(lock); // before those are told who wait for it
    const auto now = Clock::now();
    bool isDue = false; // the report
    if (!error) {
        failing = told = false;
        backoff = 0ms;
        fullSince.reset();
        if (lost > 0 && !lossAfter)
            lossAfter = pushed();
    } else {
        fail(error);
        // A pipe that is full has a slow reader, which is no trouble to tell of.
        isDue = error != std::errc::resource_unavailable_try_again && isToBeTold();
        lossAfter.reset(); // first what is held now
        backoff = std::clamp(backoff * 2, std::chrono::milliseconds(shortestBackoff), longestBackoff);
        retryAt = now + backoff;
    }
    if (waiting > 0)
        progress.notify_all();
    if (isDue)
        report("cannot be written, records wait: ", lock);
}

/// Whether lines may wait for the next write: nobody waits for them.
bool LogWriter::mayGather() const
{
    return pace.gatheringTime() > Clock::duration::zero() && !requested && changes == 0 && waiting == 0 && !stopping &&
           !abandoned && !failing && lost == 0 && !settings.flush && !hasGathered();
}

/// Lets lines gather, without having each of them wake this thread.
void LogWriter::gather(Lock& lock)
{
    gathering = true;
    work.wait_until(lock, Clock::now() + pace.gatheringTime());
    gathering = false;
    pace.gathered(queue.size());
}

void LogWriter::sleep(Lock& lock)
{
    asleep = true;
    if (mayRest()) // still, now that lines wake this thread
        rest(lock, std::nullopt);
    asleep = false;
    pace.woken(Clock::now());
}

bool LogWriter::mayRest() const
{
    return !hasWork() && !stopping && !abandoned && (!requested || changes > 0);
}

/// Gives back what memory it can, and sleeps until woken.
void LogWriter::rest(Lock& lock, std::optional<Clock::time_point> until)
{
    if (queue.isEmpty()) {
        queue.trim();
        if (giveBackMemory(lock) && !mayRest())
            return;
    }
    if (until)
        work.wait_until(lock, *until);
    else
        work.wait(lock);
}

} // namespace Zyr
