// What is set and asked for on any thread, and how the worker thread takes it up between two writes.

#include "writer/LogWriter.h"

#include <utility>

namespace Zyr {

QueueLimits LogWriter::limits() const
{
    const Guard guard(mutex);
    return queueLimits;
}

void LogWriter::setLimits(const QueueLimits& wanted)
{
    const Guard guard(mutex);
    queue.setBound(wanted.bytes);
    queueLimits = wanted;
    returnMemory();
    progress.notifyAll();
}

void LogWriter::setLineLimit(std::size_t lines)
{
    const Guard guard(mutex);
    lineLimit = lines;
    updateFastPath();
}

void LogWriter::setLossFormat(std::string source, std::shared_ptr<const LinePatterns> format)
{
    const Guard guard(mutex);
    lossSource = std::move(source);
    lossFormat = std::move(format);
}

void LogWriter::configure(FileSettings wanted)
{
    const Guard guard(mutex);
    settings = std::move(wanted);
    requests.configure = true;
    request();
}

void LogWriter::adopt(AppendFile&& opened, bool rotateFirst)
{
    AppendFile waited; // the one that waited is closed after the mutex is released
    const Guard guard(mutex);
    if (requests.change.opened)
        waited = std::move(*requests.change.opened);
    requests.change.opened = std::move(opened);
    requests.change.rotateFirst = rotateFirst;
    requests.close = false;
    request();
}

void LogWriter::close()
{
    AppendFile waited;
    const Guard guard(mutex);
    if ((changes > 0 || !worker.isAlive()) && requests.change.opened) {
        waited = std::move(*requests.change.opened);
        requests.change.opened.reset();
    }
    requests.change.lookAgain = true;
    requests.close = changes == 0; // a change that is under way goes on with the file
    request();
}

void LogWriter::beginChange()
{
    const Guard guard(mutex);
    if (changes++ == 0)
        heldSince = Clock::now();
}

void LogWriter::endChange()
{
    const Guard guard(mutex);
    if (changes > 0 && --changes == 0) // none in a child that was forked in between
        request();
}

void LogWriter::request()
{
    requested = true;
    health.retryNow();
    worker.enter(Rest::Busy);
    work.notifyOne();
}

void LogWriter::takeRequests()
{
    LineStore::Change change;
    if (requests.configure)
        change.settings = settings; // may throw: nothing is taken yet
    change.opened = std::exchange(requests.change.opened, std::nullopt);
    change.rotateFirst = requests.change.rotateFirst;
    change.lookAgain = requests.change.lookAgain;
    const bool closes = requests.close;
    closing = closes || (closing && !change.opened);
    requests = {};
    requested = false;
    try {
        const Unlocked unlocked(mutex);
        store->apply(change);
    } catch (...) { // out of memory
        putBack(change, closes);
        const Unlocked unlocked(mutex); // `change` may close a file yet
        change = {};
        throw;
    }
}

/// To be taken again, but for what newer requests have replaced.
void LogWriter::putBack(LineStore::Change& change, bool closes) noexcept
{
    requested = true;
    requests.configure = requests.configure || change.settings;
    if (!change.opened || requests.change.opened || requests.close)
        return;
    requests.change.opened = std::move(change.opened);
    requests.change.rotateFirst = change.rotateFirst;
    requests.close = closes;
}

std::shared_ptr<LogWriter> LogWriter::copyForChild() const
{
    auto copy = std::make_shared<LogWriter>(makeStore);
    copy->queue.setBound(queue.bound());
    copy->queueLimits = queueLimits;
    copy->lineLimit = lineLimit;
    copy->settings = settings;
    copy->requests.configure = true;
    copy->requested = true;
    copy->lossSource = lossSource;
    copy->lossFormat = lossFormat;
    return copy;
}

} // namespace Zyr
