// The writer as the threads that log and configure see it.

#include "writer/LogWriter.h"

#include "store/LogProblem.h"
#include "system/BlockedSignals.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace Zyr {

using namespace std::chrono_literals;

namespace {

constexpr auto patienceWhenFull = 2s;
constexpr auto longestHold = 2s;
constexpr std::size_t stackSize = 512 * 1024;
constexpr int looksAtGate = 100;
constexpr std::size_t longestReason = 256; // of the system, in any language
constexpr auto quietTime = 10s;            // between two reports of failures

void pauseProcessor() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__ARM_ARCH) && __ARM_ARCH >= 7)
    __asm__ __volatile__("yield");
#endif
}

} // namespace

LogWriter::LogWriter()
{
    lossReason.reserve(longestReason);
    failure.reserve(longestReason);
}

LogWriter::~LogWriter() = default;

void LogWriter::push(std::string_view line)
{
    if (!queue.append(line))
        return pushLocked(line);
    // In one order with sleep(), as is the line's place in the queue: either that is seen there or this here.
    if (asleep) {
        Lock lock(gate);
        wake(lock);
    }
}

void LogWriter::loseForWantOfMemory()
{
    Lock lock = lockSoon();
    lose(abandoned ? stuckReason() : std::strerror(ENOMEM));
    if (!abandoned)
        wake(lock);
}

/// Locks `gate`, which is held for so short a time that it is cheaper to look again a few times than to sleep.
LogWriter::Lock LogWriter::lockSoon()
{
    for (int i = 0; i < looksAtGate; ++i) {
        if (gate.try_lock())
            return Lock(gate, std::adopt_lock);
        pauseProcessor();
    }
    return Lock(gate);
}

void LogWriter::pushLocked(std::string_view line)
{
    Lock lock = lockSoon();
    std::optional<Clock::time_point> memoryBy; // is waited for
    for (;;) {
        if (abandoned)
            return lose(stuckReason());
        if (line.size() > LineQueue::longestLine) {
            lose(std::strerror(EMSGSIZE));
            return wake(lock);
        }
        if (lineLimit > 0 && queue.size() >= lineLimit) {
            lose("the queue is full");
            return wake(lock);
        }
        if (queue.appendLocked(line))
            return wake(lock);
        bool mayWait = overflow == Overflow::Wait;
        const char* reason = "the queue is full";
        const std::size_t bytes = queue.chunkBytes(line);
        if (queue.mayGrow(bytes)) {
            const bool othersHadSome = queue.isUsed() || givingBack > 0;
            queue.announce(bytes);
            const bool fillsUp = !queue.isEmpty(); // so that all of it will be needed
            LineChunk* const freed = queue.takeFreed();
            lock.unlock();
            LineChunk::unmap(freed);
            LineChunk* const chunk = LineChunk::map(bytes, fillsUp);
            lock.lock();
            if (abandoned) {
                queue.takeBack(chunk, bytes);
                continue;
            }
            if (queue.add(chunk, bytes, line))
                return wake(lock);
            // Lines of others give memory back when they are written; but others may take it again and again.
            const auto now = Clock::now();
            if (!memoryBy)
                memoryBy = now + patienceWhenFull;
            const bool othersHaveSome = queue.isUsed() || givingBack > 0;
            mayWait = mayWait && (othersHaveSome || othersHadSome) && now < *memoryBy;
            if (mayWait && !othersHaveSome)
                continue; // it was given back meanwhile
            reason = std::strerror(ENOMEM);
        }
        if (!mayWait) {
            lose(reason);
            return wake(lock);
        }
        if (!waitForRoom(lock))
            return;
    }
}

/// False when the line is lost.
bool LogWriter::waitForRoom(Lock& lock)
{
    const auto now = Clock::now();
    auto until = now + lookInterval;
    if (!fullSince) // a write that succeeds resets it
        fullSince = now;
    if (isStuck(now)) {
        until = *fullSince + patienceWhenFull;
        if (now >= until) {
            lose(stuckReason());
            return false;
        }
    }
    if (!running)
        start(lock);
    if (std::exchange(gathering, false))
        work.notify_one();
    ++waiting;
    ++wantingRoom;
    progress.wait_until(lock, until);
    --wantingRoom;
    --waiting;
    if (abandoned)
        progress.notify_all(); // whoever gives up counts what is lost here
    return true;
}

bool LogWriter::isStuck(Clock::time_point now) const
{
    return failing || now >= watch.limit() || (changes > 0 && now >= heldSince + longestHold);
}

std::string_view LogWriter::stuckReason() const
{
    return failing ? std::string_view(failure) : "no answer from the file system";
}

/// Without an allocation, for the lack of memory may be the reason.
void LogWriter::lose(std::string_view reason) noexcept
{
    ++lost;
    lossReason = reason.substr(0, longestReason);
}

/// Lines take the short way, past the lock, where there is nothing that each of them has to be asked for.
void LogWriter::setShortWay()
{
    queue.shut(!running || abandoned || lineLimit > 0);
}

/// Has the worker thread look at the queue.
void LogWriter::wake(Lock& lock)
{
    if (!running)
        return start(lock);
    const bool notify = asleep || (gathering && hasGathered());
    if (notify)
        asleep = gathering = false;
    lock.unlock();
    if (notify)
        work.notify_one();
}

void LogWriter::request(Lock& lock)
{
    requested = true;
    retryAt = {};
    asleep = gathering = false;
    lock.unlock();
    work.notify_one();
}

/// Starts the thread, which may have ended again when this returns.
void LogWriter::start(Lock& lock)
{
    ++waiting;
    progress.wait(lock, [this] { return !starting; });
    --waiting;
    if (running)
        return;
    auto* const self = new (std::nothrow) std::shared_ptr<LogWriter>(shared_from_this()); // the thread's
    running = starting = true;
    const pthread_t former = thread;
    const bool hasFormer = std::exchange(joinable, false);
    lock.unlock();
    if (hasFormer)
        ::pthread_join(former, nullptr);

    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t started = {};
    int error = ENOMEM;
    if (self) {
        const BlockedSignals blocked;
        error = ::pthread_create(&started, &attributes, &enter, self);
    }
    ::pthread_attr_destroy(&attributes);
    if (error != 0)
        delete self;

    lock.lock();
    starting = false;
    if (waiting > 0)
        progress.notify_all();
    if (error == 0) {
        thread = started;
        joinable = true;
        return;
    }
    running = false;
    setShortWay(); // which others may have opened meanwhile
    fail({error, std::system_category()});
    if (isToBeTold())
        report("no thread to write it, records wait: ", lock);
}

/// The reason is kept without an allocation, for the lack of memory may be it.
void LogWriter::fail(const std::error_code& error) noexcept
{
    if (!std::exchange(failing, true))
        fullSince.reset();
    try {
        failure = std::string_view(error.message()).substr(0, longestReason);
    } catch (const std::bad_alloc&) {
        failure = std::string_view(std::strerror(ENOMEM)).substr(0, longestReason);
    }
}

/// Once in each failure that goes on, and not when another one was told only just now.
bool LogWriter::isToBeTold()
{
    const auto now = Clock::now();
    if (told || (reported && now - *reported <= quietTime))
        return false;
    told = true;
    reported = now;
    return true;
}

/// Says the problem and the present failure on standard error, as far as there is memory for that.
void LogWriter::report(const char* problem, Lock& lock) noexcept
{
    try {
        const std::string path = settings.path;
        const std::string text = problem + failure;
        lock.unlock();
        reportLogProblem(path, QString::fromStdString(text));
    } catch (const std::bad_alloc&) {
    }
    if (!lock.owns_lock())
        lock.lock();
}

LogWriter::Limits LogWriter::limits() const
{
    const Lock lock(gate);
    return {queue.bound(), overflow};
}

void LogWriter::setLimits(const Limits& wanted)
{
    Lock lock(gate);
    queue.setBound(wanted.bytes);
    overflow = wanted.overflow;
    giveBackMemory(lock);
    progress.notify_all();
}

/// The chunks that are no longer needed. False when there are none; else the lock was released meanwhile.
bool LogWriter::giveBackMemory(Lock& lock)
{
    LineChunk* const freed = queue.takeFreed();
    if (!freed)
        return false;
    ++givingBack;
    lock.unlock();
    LineChunk::unmap(freed);
    lock.lock();
    --givingBack;
    return true;
}

void LogWriter::setLineLimit(std::size_t lines)
{
    const Lock lock(gate);
    lineLimit = lines;
    setShortWay();
}

void LogWriter::setLossFormat(std::string source, std::shared_ptr<const LinePatterns> format)
{
    const Lock lock(gate);
    lossSource = std::move(source);
    lossFormat = std::move(format);
}

void LogWriter::configure(FileSettings wanted)
{
    Lock lock(gate);
    settings = std::move(wanted);
    requests.configure = true;
    request(lock);
}

void LogWriter::adopt(AppendFile&& opened, bool beginAnew)
{
    Lock lock(gate);
    std::swap(requests.opened, opened); // the one that waited is closed by the caller
    requests.adopt = true;
    requests.beginAnew = beginAnew;
    requests.close = false;
    request(lock);
}

void LogWriter::close()
{
    AppendFile waited;
    Lock lock(gate);
    if (changes > 0 || !running) {
        std::swap(requests.opened, waited);
        requests.adopt = false;
    }
    requests.look = true;
    requests.close = changes == 0; // whoever changes something goes on with the file
    request(lock);
}

void LogWriter::beginChange()
{
    const Lock lock(gate);
    if (changes++ == 0)
        heldSince = Clock::now();
}

void LogWriter::endChange()
{
    Lock lock(gate);
    if (changes > 0 && --changes == 0) // none in a child that was forked in between
        request(lock);
}

std::shared_ptr<LogWriter> LogWriter::copyForChild() const
{
    auto copy = std::make_shared<LogWriter>();
    copy->queue.setBound(queue.bound());
    copy->overflow = overflow;
    copy->lineLimit = lineLimit;
    copy->settings = settings;
    copy->requests.configure = true;
    copy->requested = true;
    copy->lossSource = lossSource;
    copy->lossFormat = lossFormat;
    return copy;
}

} // namespace Zyr
