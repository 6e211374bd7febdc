#pragma once

#include "base/Mutex.h"
#include "queue/LineQueue.h"
#include "settings/FileSettings.h"
#include "settings/QueueLimits.h"
#include "store/LineStore.h"
#include "system/CallWatch.h"
#include "writer/LossLedger.h"
#include "writer/StoreHealth.h"
#include "writer/WorkerState.h"
#include "writer/WritePace.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <pthread.h>

namespace Zyr {

class LinePatterns;

/// The queue of a logger and the worker thread that writes it to the log file: what both sides share.
///
/// The thread starts with the first line and keeps this object alive, so that a store that hangs can be left behind.
/// The mutex is never held across a system call of the store, so no caller waits for one, except for room in a full
/// queue. Lines bypass it while nothing has to be checked for each of them (the queue's fast path).
class LogWriter : public std::enable_shared_from_this<LogWriter>
{
public:
    using Clock = CallWatch::Clock;

    explicit LogWriter(MakeStore makeItsStore);
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    /// Queues a line, to which a line end is added. Waits while the queue is full and the store works; while it fails
    /// or hangs, until two seconds after the queue became full. A line that finds no room then is counted as lost.
    void push(std::string_view line) ZYR_EXCLUDES(mutex);
    /// Counts a record as lost that came to no line for want of memory.
    void loseForWantOfMemory() ZYR_EXCLUDES(mutex);

    QueueLimits limits() const ZYR_EXCLUDES(mutex);
    void setLimits(const QueueLimits& wanted) ZYR_EXCLUDES(mutex);
    /// Lines beyond that many are lost; 0: no such limit.
    void setLineLimit(std::size_t lines) ZYR_EXCLUDES(mutex);
    /// How the record is written that tells of lost ones.
    void setLossFormat(std::string source, std::shared_ptr<const LinePatterns> format) ZYR_EXCLUDES(mutex);

    // Requests, which the worker thread takes up between two writes.
    void configure(FileSettings wanted) ZYR_EXCLUDES(mutex);
    void adopt(AppendFile&& opened, bool rotateFirst) ZYR_EXCLUDES(mutex);
    void close() ZYR_EXCLUDES(mutex);
    /// Between these, which may be nested, lines wait in the queue and no request is taken up.
    void beginChange() ZYR_EXCLUDES(mutex);
    void endChange() ZYR_EXCLUDES(mutex);

    /// Ends the thread when all that was queued is in the file, or was given up because the store fails or hangs. A
    /// later line starts another.
    void finish() ZYR_EXCLUDES(mutex);

    // Around fork(), in functions that the check of locks cannot follow.
    void lock() ZYR_UNCHECKED_LOCKING { mutex.lock(); }
    void unlock() ZYR_UNCHECKED_LOCKING { mutex.unlock(); }
    /// With the same settings and nothing queued, for a child. The caller has it locked.
    std::shared_ptr<LogWriter> copyForChild() const ZYR_UNCHECKED_LOCKING;

private:
    using Thread = WorkerState::Thread;
    using Duty = WorkerState::Duty;
    using Rest = WorkerState::Rest;

    struct Requests
    {
        bool configure = false;
        bool close = false;
        LineStore::Change change; ///< without settings: those are copied when it is taken up
    };

    // Without the mutex.
    bool appendFast(std::string_view line) noexcept ZYR_UNCHECKED_LOCKING { return queue.append(line); }
    bool isWorkerSleeping() const noexcept ZYR_UNCHECKED_LOCKING { return worker.isSleeping(); }

    // On the threads that log. True from the first two and shouldWake(): the worker is to be notified, once the mutex
    // is released.
    bool pushLocked(std::string_view line) ZYR_REQUIRES(mutex);
    bool loseLine(std::string_view reason) ZYR_REQUIRES(mutex);
    enum class Growth { Queued, NoMemory, Again };
    Growth growFor(std::string_view line, bool& othersHeld) ZYR_REQUIRES(mutex);
    bool waitForRoom() ZYR_REQUIRES(mutex);
    bool shouldWake() ZYR_REQUIRES(mutex);

    void updateFastPath() ZYR_REQUIRES(mutex);
    bool isStuck(Clock::time_point now) const ZYR_REQUIRES(mutex);
    std::string_view stuckReason() const ZYR_REQUIRES(mutex);
    void request() ZYR_REQUIRES(mutex);
    bool returnMemory() ZYR_REQUIRES(mutex);
    void report(const char* problem, std::uint64_t records = 0) noexcept ZYR_REQUIRES(mutex);

    // Of the thread's life.
    void start() ZYR_REQUIRES(mutex);
    int startThread() ZYR_REQUIRES(mutex);
    Clock::time_point startIfDue() ZYR_REQUIRES(mutex);
    void drain() ZYR_REQUIRES(mutex);
    void giveUp() ZYR_REQUIRES(mutex);

    // On the worker thread.
    static void* enter(void* self);
    void run() ZYR_EXCLUDES(mutex);
    bool step() ZYR_REQUIRES(mutex);
    void takeRequests() ZYR_REQUIRES(mutex);
    void putBack(LineStore::Change& change, bool closes) noexcept ZYR_REQUIRES(mutex);
    bool isLossDue() const ZYR_REQUIRES(mutex);
    void writeLines() ZYR_REQUIRES(mutex);
    void writeLoss() ZYR_REQUIRES(mutex);
    void afterWrite(const std::error_code& error) noexcept ZYR_REQUIRES(mutex);
    bool mayGather() const ZYR_REQUIRES(mutex);
    void gather() ZYR_REQUIRES(mutex);
    void sleep() ZYR_REQUIRES(mutex);
    void wait(std::optional<Clock::time_point> until) ZYR_REQUIRES(mutex);
    bool returnSpareMemory() ZYR_REQUIRES(mutex);
    bool maySleep() const ZYR_REQUIRES(mutex);
    bool hasWork() const ZYR_REQUIRES(mutex) { return !queue.isEmpty() || !loss.isEmpty(); }
    std::uint64_t pushed() const ZYR_REQUIRES(mutex) { return written + queue.size(); }
    bool hasGathered() const ZYR_REQUIRES(mutex)
    {
        return queue.isFilling() || (lineLimit > 0 && queue.size() >= lineLimit / 4);
    }

    /// One more, as long as this lives.
    class Counted
    {
    public:
        explicit Counted(unsigned& itsCount) noexcept
            : count(itsCount)
        {
            ++count;
        }
        ~Counted() { --count; }
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;

    private:
        unsigned& count;
    };

    /// At which those who wait look whether the store hangs.
    static constexpr std::chrono::milliseconds lookInterval{500};

    mutable Mutex mutex;
    Condition work;                                 ///< for the worker thread
    Condition progress;                             ///< for those who wait for it
    unsigned waiting ZYR_GUARDED_BY(mutex) = 0;     ///< for `progress`
    unsigned wantingRoom ZYR_GUARDED_BY(mutex) = 0; ///< of those, to queue a line
    unsigned returningMemory ZYR_GUARDED_BY(mutex) = 0;

    LineQueue queue ZYR_GUARDED_BY(mutex){QueueLimits().bytes}; ///< but for the fast path
    QueueLimits queueLimits ZYR_GUARDED_BY(mutex);
    std::size_t lineLimit ZYR_GUARDED_BY(mutex) = 0;
    std::uint64_t written ZYR_GUARDED_BY(mutex) = 0; ///< lines

    FileSettings settings ZYR_GUARDED_BY(mutex);
    Requests requests ZYR_GUARDED_BY(mutex);
    bool requested ZYR_GUARDED_BY(mutex) = false;
    unsigned changes ZYR_GUARDED_BY(mutex) = 0;
    Clock::time_point heldSince ZYR_GUARDED_BY(mutex);
    bool closing ZYR_GUARDED_BY(mutex) = false; ///< the file, when no archive waits for compression any more

    WorkerState worker ZYR_GUARDED_BY(mutex); ///< but for isSleeping()
    pthread_t thread ZYR_GUARDED_BY(mutex) = {};
    bool startFailed ZYR_GUARDED_BY(mutex) = false; ///< the last time
    unsigned givingUp ZYR_GUARDED_BY(mutex) = 0;    ///< how many count what is given up
    unsigned stopping ZYR_GUARDED_BY(mutex) = 0;    ///< how many wait for its end
    Clock::time_point stopBy ZYR_GUARDED_BY(mutex);
    WritePace pace ZYR_GUARDED_BY(mutex);
    Clock::duration copyWait ZYR_GUARDED_BY(mutex){0}; ///< for a thread that has reserved but not yet copied

    StoreHealth health ZYR_GUARDED_BY(mutex);
    LossLedger loss ZYR_GUARDED_BY(mutex);
    std::string lossSource ZYR_GUARDED_BY(mutex);
    std::shared_ptr<const LinePatterns> lossFormat ZYR_GUARDED_BY(mutex);

    CallWatch watch; ///< atomic
    const MakeStore makeStore;
    const std::unique_ptr<LineStore> store; ///< the worker thread's own, as are the next two
    std::string lossLine;                   ///< one that a pipe has taken in part
    std::uint64_t lossLineRecords = 0;
};

} // namespace Zyr
