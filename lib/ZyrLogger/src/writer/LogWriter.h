#pragma once

#include "queue/LineQueue.h"
#include "settings/FileSettings.h"
#include "store/AppendFile.h"
#include "store/LogFile.h"
#include "system/CallWatch.h"
#include "writer/WritePace.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <pthread.h>

namespace Zyr {

class LinePatterns;

/// The queue of a logger and the worker thread that writes it to the log file: what both sides share.
///
/// The thread starts with the first line and keeps this object alive, so that a store that hangs can be left behind.
/// `gate` guards everything but `file`, which is the thread's own, and the short way into the queue; it is never held
/// across a system call of the store, so no caller waits for one, except for room in a full queue.
class LogWriter : public std::enable_shared_from_this<LogWriter>
{
public:
    enum class Overflow { Wait, Drop };

    static constexpr std::size_t leastBound = std::size_t(64) << 10;
    static constexpr std::size_t mostBound = std::size_t(1024) << 20;

    struct Limits
    {
        std::size_t bytes = std::size_t(8) << 20; ///< of memory that the queue may hold
        Overflow overflow = Overflow::Wait;       ///< what to do when it is full
    };

    LogWriter();
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    /// Queues a line, to which a line end is added. Waits while the queue is full and the store works; while it fails
    /// or hangs, until two seconds after the queue became full. A line that finds no room then is counted as lost.
    void push(std::string_view line);
    /// Counts a record as lost that came to no line for want of memory.
    void loseForWantOfMemory();

    Limits limits() const;
    void setLimits(const Limits& wanted);
    /// Lines beyond that many are lost; 0: no such limit.
    void setLineLimit(std::size_t lines);
    /// How the record is written that tells of lost ones.
    void setLossFormat(std::string source, std::shared_ptr<const LinePatterns> format);

    // Requests, which the worker thread takes up between two writes.
    void configure(FileSettings wanted);
    void adopt(AppendFile&& opened, bool beginAnew);
    void close();
    /// Between these, which may be nested, lines wait in the queue and no request is taken up.
    void beginChange();
    void endChange();

    /// Ends the thread when all that was queued is in the file, or was given up because the store fails or hangs. A
    /// later line starts another.
    void finish();

    // Around fork().
    void lock() { gate.lock(); }
    void unlock() { gate.unlock(); }
    /// With the same settings and nothing queued, for a child. The caller has it locked.
    std::shared_ptr<LogWriter> copyForChild() const;

private:
    using Clock = CallWatch::Clock;
    using Lock = std::unique_lock<std::mutex>;

    /// At which those who wait look whether the store hangs.
    static constexpr std::chrono::milliseconds lookInterval{500};

    struct Requests
    {
        bool configure = false;
        bool close = false;
        bool look = false;
        bool adopt = false;
        bool beginAnew = false;
        AppendFile opened;
    };

    // On the threads that log.
    Lock lockSoon();
    void pushLocked(std::string_view line);
    void setShortWay();
    bool isStuck(Clock::time_point now) const;
    std::string_view stuckReason() const;
    bool waitForRoom(Lock& lock);
    void lose(std::string_view reason) noexcept;
    void wake(Lock& lock);
    void request(Lock& lock);
    void start(Lock& lock);
    void drain(Lock& lock);
    bool giveBackMemory(Lock& lock);
    void giveUp(Lock& lock);

    // On the worker thread.
    static void* enter(void* self);
    void run();
    bool turn(Lock& lock);
    void takeRequests(Lock& lock);
    void putBack(Requests&& taken) noexcept;
    bool isLossDue() const;
    void writeLines(Lock& lock);
    void writeLoss(Lock& lock);
    void settle(const std::error_code& error, Lock& lock) noexcept;
    void fail(const std::error_code& error) noexcept;
    bool isToBeTold();
    void report(const char* problem, Lock& lock) noexcept;
    bool mayGather() const;
    void gather(Lock& lock);
    void sleep(Lock& lock);
    void rest(Lock& lock, std::optional<Clock::time_point> until);
    bool hasWork() const { return !queue.isEmpty() || lost > 0; }
    std::uint64_t pushed() const { return written + queue.size(); }
    bool mayRest() const;
    bool hasGathered() const { return queue.isFilling() || (lineLimit > 0 && queue.size() >= lineLimit / 4); }

    mutable std::mutex gate;
    std::condition_variable work;     ///< for the worker thread
    std::condition_variable progress; ///< for those who wait for it
    unsigned waiting = 0;
    unsigned wantingRoom = 0; ///< of those, to queue a line
    unsigned givingBack = 0;  ///< memory, just now

    LineQueue queue{Limits().bytes};
    Overflow overflow = Limits().overflow;
    std::size_t lineLimit = 0;
    std::uint64_t written = 0; ///< lines

    FileSettings settings;
    Requests requests;
    bool requested = false;
    unsigned changes = 0;
    Clock::time_point heldSince;

    pthread_t thread = {};
    bool joinable = false;
    bool starting = false;
    bool running = false;
    std::atomic<bool> asleep = false; ///< and to be woken by a line
    bool gathering = false;           ///< leaves lines to gather; to be woken by many only
    WritePace pace;
    unsigned stopping = 0; ///< how many wait for its end
    bool abandoned = false;
    bool leftBehind = false; ///< the thread, in a call that hangs
    bool closing = false;    ///< the file, when no archive waits for compression any more
    Clock::time_point stopBy;

    bool failing = false;
    std::string failure; ///< in memory that it keeps
    Clock::time_point retryAt;
    std::chrono::milliseconds backoff{0};
    std::optional<Clock::time_point> fullSince; ///< in the present failure
    bool told = false;                          ///< the present failure
    std::optional<Clock::time_point> reported;  ///< any

    Clock::duration copyingTime{0}; ///< for which a thread that is copying a line is waited

    std::uint64_t lost = 0;
    std::string lossReason;                 ///< in memory that it keeps
    std::optional<std::uint64_t> lossAfter; ///< this many written lines comes the record of the loss
    std::string lossSource;
    std::shared_ptr<const LinePatterns> lossFormat;

    CallWatch watch;
    LogFile file{watch};
    std::string lossLine; ///< the thread's own: one that a pipe has taken in part
    std::uint64_t lossTold = 0;
};

} // namespace Zyr
