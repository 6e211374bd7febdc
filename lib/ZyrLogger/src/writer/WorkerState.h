#pragma once

#include <atomic>
#include <cassert>

namespace Zyr {

/// The state of a writer's worker thread. The writer's mutex guards all of it; only whether the thread sleeps may be
/// asked without.
///
/// Thread                  | who
/// ------------------------|---------------------------------------------------------------------------------------
/// None, Ended -> Starting | a caller that has a line, or waits for lines to be written, and finds no thread
/// Starting -> Running     | the same caller, when the system has made one; the thread waits for that
/// Starting -> None        | the same caller, when the system has not
/// Running -> Ended        | the thread
/// Ended -> None           | finish(), which joins it
/// Running -> Detached     | finish(), when the thread hangs in a call of the store
/// Detached -> None        | the thread, when that call comes back after all
///
/// Duty                    | who
/// ------------------------|---------------------------------------------------------------------------------------
/// Working -> GivenUp      | drain() and finish(), when the store fails or hangs for too long
/// GivenUp -> Working      | finish(), once there is no thread; or a detached thread that comes back, as it ends
///
/// Rest                    | who
/// ------------------------|---------------------------------------------------------------------------------------
/// Busy -> any other       | the thread
/// any other -> Busy       | the thread, when it wakes; or the caller that wakes it, so that no other one does
class WorkerState
{
public:
    enum class Thread { None, Starting, Running, Ended, Detached };
    enum class Duty { Working, GivenUp };
    enum class Rest {
        Busy,
        Gathering, ///< leaves lines to gather: not to be woken by a few of them
        Waiting,   ///< for the store, or for the end of a change: not to be woken by lines
        Sleeping,  ///< to be woken by the next line
    };

    Thread thread() const noexcept { return threadNow; }
    bool isAlive() const noexcept
    {
        return threadNow == Thread::Starting || threadNow == Thread::Running || threadNow == Thread::Detached;
    }
    bool hasGivenUp() const noexcept { return dutyNow == Duty::GivenUp; }
    Rest rest() const noexcept { return restNow.load(std::memory_order_relaxed); }

    /// From any thread. Sequentially consistent, as are enter(Rest) and the reservation of a line's place: the thread
    /// goes to sleep before it looks once more for lines, a caller reserves a line before it looks here, and so one of
    /// them sees the other.
    bool isSleeping() const noexcept { return restNow == Rest::Sleeping; }

    void enter(Thread next) noexcept
    {
        assert(mayFollow(next));
        threadNow = next;
        assert(isConsistent());
    }
    void enter(Duty next) noexcept
    {
        assert(next == Duty::GivenUp || !isAlive());
        dutyNow = next;
        assert(isConsistent());
    }
    void enter(Rest next) noexcept
    {
        assert(next == Rest::Busy || rest() == Rest::Busy);
        restNow = next;
        assert(isConsistent());
    }
    /// The thread hangs, so nobody will take up what is queued.
    void detach() noexcept
    {
        assert(threadNow == Thread::Running);
        enter(Duty::GivenUp);
        enter(Thread::Detached);
    }

private:
    bool mayFollow(Thread next) const noexcept
    {
        switch (next) {
        case Thread::None:
            return threadNow != Thread::None && threadNow != Thread::Running;
        case Thread::Starting:
            return threadNow == Thread::None || threadNow == Thread::Ended;
        case Thread::Running:
            return threadNow == Thread::Starting;
        case Thread::Ended:
        case Thread::Detached:
            return threadNow == Thread::Running;
        }
        return false;
    }

    bool isConsistent() const noexcept
    {
        return (threadNow != Thread::Detached || dutyNow == Duty::GivenUp) &&
               (rest() == Rest::Busy || threadNow == Thread::Running);
    }

    Thread threadNow = Thread::None;
    Duty dutyNow = Duty::Working;
    std::atomic<Rest> restNow = Rest::Busy;
    static_assert(std::atomic<Rest>::is_always_lock_free);
};

} // namespace Zyr
