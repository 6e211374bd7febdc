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

/// The one thread of the process that watches files, and the order between it and those who start and stop watching.
///
/// The thread runs while there is something to watch. A child made by fork() has no such thread and watches nothing.
class Watcher
{
public:
    using Time = WatchClient::Time;
    using Client = std::shared_ptr<WatchClient>;

    static Watcher& instance();

    /// In a forked child everything that the thread has to do with is left as it is.
    bool isForked() const noexcept { return ::getpid() != owner; }

    enum class Begin { First, Again, Started, Resumed };
    /// Starts a client. First: the caller has it to itself until end(). Again: the same, but it had been started before
    /// and could not be watched. Started: it had been started before. Resumed: it has been stopped by a callback that
    /// is still running and cannot be waited for, mostly since it is the caller.
    Begin begin(const Client& client);

    /// Watches the path of a client that has not been stopped since. What cannot be watched is tried again and again by
    /// the thread, and where that cannot be started, by whoever watches something next. The first time, `problem` tells
    /// why.
    bool watch(const Client& client, QString& problem);

    /// Has a watched client look at its file.
    void touch(const Client& client);

    /// Ends what begin() acquired; with `failed`, the start as well.
    void end(const Client& client, std::optional<Time> nextLook, bool failed);

    /// Stops a client and waits until it is not busy, unless this thread is what keeps it busy.
    void stop(const Client& client);

    /// Whether this thread is between the client's begin() and end(), that is in its callback.
    bool isBusyHere(const Client& client);

    /// Changes what a forked child must not find half changed.
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
    std::mutex walkMutex; ///< for one walk at a time; never waited for while holding the other, that fork() waits for
    std::condition_variable changed;                       ///< a client is not busy any more, or the thread has ended
    std::map<const void*, Client> clients;                 ///< watched, or to be watched as soon as they can be
    std::map<std::thread::id, const WatchClient*> waiting; ///< who waits until which client is idle
    std::shared_ptr<PathWatch> paths;
    int startingWalks = 0; ///< by others than the thread, which leaves the events alone meanwhile
    Descriptor wakeUp;
    std::thread thread;
    bool quit = false;
    bool ended = false;
    bool serving = false;           ///< the thread is in a client's look()
    const pid_t owner = ::getpid(); // a fork may begin before its handlers are there
};

} // namespace Zyr
