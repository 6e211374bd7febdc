#pragma once

#include "base/Mutex.h"
#include "watch/PathWatch.h"
#include "watch/WatchClient.h"

#include <QtCore/QString>

#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <unistd.h>

namespace Zyr {

/// The process's one thread that watches files, and its synchronisation with the threads that start and stop watching.
///
/// The thread runs while there is something to watch. A child made by fork() has no such thread and watches nothing.
class Watcher
{
public:
    using Time = WatchClient::Time;
    using Client = std::shared_ptr<WatchClient>;

    static Watcher& instance();

    /// True in a forked child. It has no such thread, so what belongs to that is left alone.
    bool isForked() const noexcept { return ::getpid() != owner; }

    enum class Begin { First, Again, Started, Resumed };
    /// Starts a client. First: the caller has it to itself until end(). Again: the same, but it was started before and
    /// could not be watched. Started: it was started before. Resumed: it was stopped during a callback that
    /// is still running and cannot be waited for, mostly since the caller is that callback.
    Begin begin(const Client& client);

    /// Watches the path of a client that has not been stopped since begin(). What cannot be watched is tried again by
    /// the thread; if that cannot be started, by the next call of watch(). `problem` says why, the first time only.
    bool watch(const Client& client, QString& problem);

    /// Has a watched client look at its file.
    void touch(const Client& client);

    /// Ends what begin() acquired; with `failed`, the start as well.
    void end(const Client& client, std::optional<Time> nextLook, bool failed);

    /// Stops a client and waits until it is not busy, unless this thread is what keeps it busy.
    void stop(const Client& client);

    /// Whether this thread is between the client's begin() and end(), that is in its callback.
    bool isBusyHere(const Client& client);

    /// Makes a change under the mutex, which fork() takes too: a child never finds it half made.
    template <typename Change>
    void publish(Change&& change)
    {
        const Guard guard(mutex);
        change();
    }

private:
    Watcher();
    QString ensureRunning() ZYR_REQUIRES(mutex);
    void wake() const ZYR_REQUIRES(mutex);
    bool isWatched(const Client& client) const ZYR_REQUIRES(mutex);
    void waitUntilIdle(const Client& client) ZYR_REQUIRES(mutex);
    bool waitsForThisThread(const WatchClient* client) const ZYR_REQUIRES(mutex);
    void endThread() ZYR_REQUIRES(mutex);

    void run();
    void runOnce() ZYR_REQUIRES(mutex);
    void touchAll() ZYR_REQUIRES(mutex);
    void recover() ZYR_REQUIRES(mutex);
    int timeout() const ZYR_REQUIRES(mutex);
    void readEvents() ZYR_REQUIRES(mutex);
    int walk(const Client& client) ZYR_REQUIRES(mutex);
    int walkUnlocked(const Client& client, PathWatch& walked) ZYR_REQUIRES(walkMutex) ZYR_EXCLUDES(mutex);
    void watchDueClients() ZYR_REQUIRES(mutex);
    void serveDueClients() ZYR_REQUIRES(mutex);

    Mutex mutex;
    Mutex walkMutex;   ///< one walk at a time. Taken before `mutex`: fork() takes that, and a walk may hang
    Condition changed; ///< a client is idle, the thread has ended or is to go on

    /// Watched, or to be watched as soon as they can be.
    std::map<const void*, Client> clients ZYR_GUARDED_BY(mutex);
    /// The client that each waiting thread waits for.
    std::map<std::thread::id, const WatchClient*> waiting ZYR_GUARDED_BY(mutex);
    std::shared_ptr<PathWatch> paths ZYR_GUARDED_BY(mutex);
    /// By other threads than the watcher's, which reads no events meanwhile.
    int startingWalks ZYR_GUARDED_BY(mutex) = 0;
    Descriptor wakeUp ZYR_GUARDED_BY(mutex);
    std::thread thread ZYR_GUARDED_BY(mutex);
    bool quit ZYR_GUARDED_BY(mutex) = false;
    bool ended ZYR_GUARDED_BY(mutex) = false;
    bool serving ZYR_GUARDED_BY(mutex) = false; ///< the thread is in a client's look()

    const pid_t owner = ::getpid(); ///< not set by a fork handler: a fork may run before it is registered
};

} // namespace Zyr
