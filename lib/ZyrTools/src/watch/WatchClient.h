#pragma once

#include "watch/Backoff.h"

#include <QtCore/QByteArray>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>

namespace Zyr {

/// Something that wants to look at a file when it changes.
class WatchClient : public std::enable_shared_from_this<WatchClient>
{
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit WatchClient(QByteArray watchedPath)
        : path(std::move(watchedPath))
    {
    }
    virtual ~WatchClient();
    WatchClient(const WatchClient&) = delete;
    WatchClient& operator=(const WatchClient&) = delete;

    /// Called on the watcher's thread, between begin() and end() of its own: the file has changed and settled
    /// (`touched`) or the time has come that the last call asked for. Returns when to call again in any case.
    virtual std::optional<Time> look(bool touched) = 0;

    const QByteArray path;

private:
    friend class Watcher;

    void touch();
    bool watchFailed(); ///< returns whether that is news
    void watchSucceeded();
    std::optional<Time> settledAt() const; ///< when to look at a dirty file
    std::optional<Time> dueAt() const;

    // All of this is guarded by the watcher's mutex.
    bool started = false;
    bool busy = false; ///< somebody is between begin() and end()
    std::thread::id busyThread;
    bool dirty = false; ///< touched since the last look
    bool writerOpen = false;
    Time firstTouch;
    Time lastTouch;
    std::optional<Time> nextLook;
    std::optional<Time> nextWatch; ///< when to watch the path anew: it leads elsewhere, or could not be watched
    Backoff watchAgain;            ///< after failures to do so; none while all is well
};

} // namespace Zyr
