#pragma once

#include <condition_variable>
#include <mutex>

// What clang's -Wthread-safety checks: which mutex guards a field, and which one a function's caller holds.
#if defined(__clang__)
#define ZYR_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ZYR_THREAD_SAFETY(attribute)
#endif
#define ZYR_GUARDED_BY(mutex) ZYR_THREAD_SAFETY(guarded_by(mutex))
#define ZYR_REQUIRES(mutex) ZYR_THREAD_SAFETY(requires_capability(mutex))
#define ZYR_EXCLUDES(mutex) ZYR_THREAD_SAFETY(locks_excluded(mutex))
/// For what the check cannot follow; a comment says why it is right.
#define ZYR_UNCHECKED_LOCKING ZYR_THREAD_SAFETY(no_thread_safety_analysis)

namespace Zyr {

/// A std::mutex that the check knows.
class ZYR_THREAD_SAFETY(capability("mutex")) Mutex
{
public:
    void lock() ZYR_THREAD_SAFETY(acquire_capability()) { mutex.lock(); }
    bool tryLock() ZYR_THREAD_SAFETY(try_acquire_capability(true)) { return mutex.try_lock(); }
    void unlock() ZYR_THREAD_SAFETY(release_capability()) { mutex.unlock(); }

private:
    friend class Condition;
    std::mutex mutex;
};

/// Holds a mutex for as long as it lives.
class ZYR_THREAD_SAFETY(scoped_lockable) Guard
{
public:
    explicit Guard(Mutex& guarded) ZYR_THREAD_SAFETY(acquire_capability(guarded))
        : mutex(guarded)
    {
        mutex.lock();
    }
    ~Guard() ZYR_THREAD_SAFETY(release_capability()) { mutex.unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    Mutex& mutex;
};

/// Releases a mutex that the thread holds, for as long as it lives.
class ZYR_THREAD_SAFETY(scoped_lockable) Unlocked
{
public:
    explicit Unlocked(Mutex& held) ZYR_THREAD_SAFETY(release_capability(held))
        : mutex(held)
    {
        mutex.unlock();
    }
    ~Unlocked() ZYR_THREAD_SAFETY(release_capability()) { mutex.lock(); } // that is, ends what the constructor did
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

private:
    Mutex& mutex;
};

/// Waits release the mutex meanwhile. They may end without a notification.
class Condition
{
public:
    void wait(Mutex& mutex) ZYR_REQUIRES(mutex)
    {
        const Lent lent(mutex);
        condition.wait(lent.lock);
    }

    template <typename Time>
    void waitUntil(Mutex& mutex, Time time) ZYR_REQUIRES(mutex)
    {
        const Lent lent(mutex);
        condition.wait_until(lent.lock, time);
    }

    void notifyOne() noexcept { condition.notify_one(); }
    void notifyAll() noexcept { condition.notify_all(); }

private:
    /// The caller goes on holding the mutex, also when its thread is cancelled in the wait.
    struct Lent
    {
        explicit Lent(Mutex& mutex)
            : lock(mutex.mutex, std::adopt_lock)
        {
        }
        ~Lent() { lock.release(); }
        mutable std::unique_lock<std::mutex> lock;
    };

    std::condition_variable condition;
};

} // namespace Zyr
