// The writer as the threads that log see it.

#include "writer/LogWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace Zyr {

using namespace std::chrono_literals;

namespace {

constexpr auto maxHold = 2s; // of a change, before it counts as stuck
constexpr auto maxMemoryWait = 2s;
constexpr int maxSpins = 100;
constexpr std::string_view queueIsFull = "the queue is full";

void pauseProcessor() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__ARM_ARCH) && __ARM_ARCH >= 7)
    __asm__ __volatile__("yield");
#endif
}

enum class OnRefusal { Retry, Wait, Lose };

/// What becomes of a line that the system refuses memory for. Others give theirs back when their lines are written, so
/// it waits while they hold some; but not for long, for they may take it again and again.
OnRefusal onRefusedMemory(bool othersHold, bool othersHeld, LogWriter::Clock::time_point now,
                          std::optional<LogWriter::Clock::time_point>& limit)
{
    if (!limit)
        limit = now + maxMemoryWait;
    if (now >= *limit || !(othersHold || othersHeld))
        return OnRefusal::Lose;
    return othersHold ? OnRefusal::Wait : OnRefusal::Retry; // in the latter case it was given back meanwhile
}

/// The mutex is held for so short a time that it is cheaper to try a few times than to sleep.
class ZYR_THREAD_SAFETY(scoped_lockable) SpinningGuard
{
public:
    explicit SpinningGuard(Mutex& guarded) ZYR_THREAD_SAFETY(acquire_capability(guarded))
        : mutex(guarded)
    {
        for (int i = 0; i < maxSpins; ++i) {
            if (mutex.tryLock())
                return;
            pauseProcessor();
        }
        mutex.lock();
    }
    ~SpinningGuard() ZYR_THREAD_SAFETY(release_capability()) { mutex.unlock(); }
    SpinningGuard(const SpinningGuard&) = delete;
    SpinningGuard& operator=(const SpinningGuard&) = delete;

private:
    Mutex& mutex;
};

} // namespace

LogWriter::LogWriter(MakeStore makeItsStore)
    : makeStore(std::move(makeItsStore))
    , store(makeStore(watch))
{
}

LogWriter::~LogWriter() = default;

void LogWriter::push(std::string_view line)
{
    bool wake = false;
    if (appendFast(line)) {
        if (!isWorkerSleeping())
            return;
        const Guard guard(mutex);
        wake = shouldWake();
    } else {
        const SpinningGuard guard(mutex);
        wake = pushLocked(line);
    }
    if (wake)
        work.notifyOne();
}

void LogWriter::loseForWantOfMemory()
{
    bool wake = false;
    {
        const SpinningGuard guard(mutex);
        wake = loseLine(worker.hasGivenUp() ? stuckReason() : std::strerror(ENOMEM));
    }
    if (wake)
        work.notifyOne();
}

bool LogWriter::pushLocked(std::string_view line)
{
    std::optional<Clock::time_point> memoryLimit;
    for (;;) {
        if (worker.hasGivenUp())
            return loseLine(stuckReason());
        if (line.size() > LineQueue::maxLine)
            return loseLine(std::strerror(EMSGSIZE));
        if (lineLimit > 0 && queue.size() >= lineLimit)
            return loseLine(queueIsFull);
        if (queue.appendLocked(line))
            return shouldWake();
        if (queue.mayGrow(queue.chunkBytes(line))) {
            bool othersHeld = false;
            const Growth growth = growFor(line, othersHeld);
            if (growth == Growth::Queued)
                return shouldWake();
            if (growth == Growth::Again)
                continue;
            const bool othersHold = queue.isUsed() || returningMemory > 0;
            const OnRefusal next = onRefusedMemory(othersHold, othersHeld, Clock::now(), memoryLimit);
            if (queueLimits.overflow == QueueLimits::Overflow::Drop || next == OnRefusal::Lose)
                return loseLine(std::strerror(ENOMEM));
            if (next == OnRefusal::Retry)
                continue;
        } else if (queueLimits.overflow == QueueLimits::Overflow::Drop) {
            return loseLine(queueIsFull);
        }
        if (!waitForRoom())
            return false;
    }
}

/// Queues the line with a chunk of its own. Both system calls are made without the mutex.
LogWriter::Growth LogWriter::growFor(std::string_view line, bool& othersHeld)
{
    const std::size_t bytes = queue.chunkBytes(line);
    othersHeld = queue.isUsed() || returningMemory > 0;
    queue.reserve(bytes);
    const bool fillsUp = !queue.isEmpty(); // so that all of it will be needed
    LineChunk* const freed = queue.takeFreed();
    LineChunk* chunk = nullptr;
    {
        const Unlocked unlocked(mutex);
        LineChunk::unmap(freed);
        chunk = LineChunk::map(bytes, fillsUp);
    }
    if (worker.hasGivenUp()) {
        queue.cancel(chunk, bytes);
        return Growth::Again;
    }
    return queue.add(chunk, bytes, line) ? Growth::Queued : Growth::NoMemory;
}

bool LogWriter::loseLine(std::string_view reason)
{
    loss.lose(reason);
    return !worker.hasGivenUp() && shouldWake();
}

/// False when there will be none: the caller's line counts as lost.
bool LogWriter::waitForRoom()
{
    const auto now = Clock::now();
    const auto limit = health.waitLimit(now);
    auto until = now + lookInterval;
    if (isStuck(now)) {
        if (now >= limit) {
            loss.lose(stuckReason());
            return false;
        }
        until = limit;
    }
    until = std::min(until, startIfDue());
    if (worker.rest() == Rest::Gathering) {
        worker.enter(Rest::Busy);
        work.notifyOne();
    }
    {
        const Counted waits(waiting);
        const Counted wants(wantingRoom);
        progress.waitUntil(mutex, until);
    }
    if (worker.hasGivenUp())
        progress.notifyAll(); // giveUp() counts what is lost here
    return true;
}

bool LogWriter::isStuck(Clock::time_point now) const
{
    return health.isFailing() || now >= watch.limit() || (changes > 0 && now >= heldSince + maxHold);
}

std::string_view LogWriter::stuckReason() const
{
    return health.isFailing() ? health.reason() : "no answer from the file system";
}

/// Opens the lock-free fast path, unless every line needs a check under the mutex.
void LogWriter::updateFastPath()
{
    queue.openFastPath(worker.thread() == Thread::Running && !worker.hasGivenUp() && lineLimit == 0);
}

/// Sees to it that the worker thread looks at the queue. True when it has to be notified for that.
bool LogWriter::shouldWake()
{
    if (!worker.isAlive()) {
        start();
        return false;
    }
    const Rest rest = worker.rest();
    const bool wake = rest == Rest::Sleeping || (rest == Rest::Gathering && hasGathered());
    if (wake)
        worker.enter(Rest::Busy);
    return wake;
}

/// The chunks that are no longer needed. False when there are none; else the mutex was released meanwhile.
bool LogWriter::returnMemory()
{
    LineChunk* const freed = queue.takeFreed();
    if (!freed)
        return false;
    const Counted returns(returningMemory);
    const Unlocked unlocked(mutex);
    LineChunk::unmap(freed);
    return true;
}

} // namespace Zyr
