#pragma once

#include "watch/PathWatch.h"
#include "watch/WatchClient.h"

#include <QtCore/QString>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
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
        const std::lock_guard lock(mutex);
        change();
    }

private:
    using Lock = std::unique_lock<std::mutex>;

    Watcher();
    QString ensureRunning();
    void wake() const;
    bool isWatched(const Client& client) const;
    void waitUntilIdle(Lock& lock, const Client& client);
    bool waitsForThisThread(const WatchClient* client) const;
    void endThread(Lock& lock);

    void run();
    void runOnce(Lock& lock);
    void touchAll();
    void recover(Lock& lock);
    int timeout() const;
    void readEvents();
    int walk(Lock& lock, const Client& client);
    void watchDueClients(Lock& lock);
    void serveDueClients(Lock& lock);

    std::mutex mutex;
    std::mutex walkMutex; ///< one walk at a time. Taken before `mutex`: fork() takes that, and a walk may hang
    std::condition_variable changed;                       ///< a client is idle, the thread has ended or is to go on
    std::map<const void*, Client> clients;                 ///< watched, or to be watched as soon as they can be
    std::map<std::thread::id, const WatchClient*> waiting; ///< the client that each waiting thread waits for
    std::shared_ptr<PathWatch> paths;
    int startingWalks = 0; ///< by other threads than the watcher's, which reads no events meanwhile
    Descriptor wakeUp;
    std::thread thread;
    bool quit = false;
    bool ended = false;
    bool serving = false;           ///< the thread is in a client's look()
    const pid_t owner = ::getpid(); ///< not set by a fork handler: a fork may run before it is registered
};

} // namespace Zyr
