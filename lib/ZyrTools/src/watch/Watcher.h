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

/// The process's one thread that watches files, synchronized with the threads that start and stop watching.
///
/// The thread runs while there is something to watch. A forked child has no such thread and watches nothing.
class Watcher
{
public:
    using Time = WatchClient::Time;
    using Client = std::shared_ptr<WatchClient>;

    static Watcher& instance();

    /// True in a forked child, where the thread's data must not be touched.
    bool isForked() const noexcept { return ::getpid() != owner; }

    enum class Begin {
        First,   ///< the caller has exclusive use of the client until end()
        Again,   ///< the same; the client was started before, but could not be watched
        Started, ///< it was started before
        Resumed  ///< it was stopped in a callback that is still running and cannot be waited for, mostly the caller
    };
    /// Starts a client.
    Begin begin(const Client& client);

    /// Watches the path of a client, unless it has been stopped since begin(). After a failure the thread tries again;
    /// if there is no thread, the next call of watch() does. `problem` gets the reason of the first failure only.
    bool watch(const Client& client, QString& problem);

    /// Makes a watched client look at its file.
    void touch(const Client& client);

    /// Ends what begin() acquired; with `failed`, the start as well.
    void end(const Client& client, std::optional<Time> nextLook, bool failed);

    /// Stops a client and waits until it is idle, unless that would deadlock: this thread may be what keeps it busy.
    void stop(const Client& client);

    /// Whether this thread is between the client's begin() and end(), or in its look().
    bool isBusyHere(const Client& client);

    /// Calls `change` under the mutex, which fork() takes too: a child never finds the change half made.
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
    Mutex walkMutex;   ///< one walk at a time; locked before `mutex`, which fork() takes, since a walk may hang
    Condition changed; ///< a client is idle, the thread has ended or is to go on

    /// Watched, or to be watched as soon as possible.
    std::map<const void*, Client> clients ZYR_GUARDED_BY(mutex);
    /// The client that each waiting thread waits for.
    std::map<std::thread::id, const WatchClient*> waiting ZYR_GUARDED_BY(mutex);
    std::shared_ptr<PathWatch> paths ZYR_GUARDED_BY(mutex);
    /// Walks on other threads than the watcher's, which reads no events meanwhile.
    int startingWalks ZYR_GUARDED_BY(mutex) = 0;
    Descriptor wakeUp ZYR_GUARDED_BY(mutex);
    std::thread thread ZYR_GUARDED_BY(mutex);
    bool quit ZYR_GUARDED_BY(mutex) = false;
    bool ended ZYR_GUARDED_BY(mutex) = false;
    bool serving ZYR_GUARDED_BY(mutex) = false; ///< the thread is in a client's look()

    const pid_t owner = ::getpid(); ///< not set by a fork handler: a fork may run before it is registered
};

} // namespace Zyr
