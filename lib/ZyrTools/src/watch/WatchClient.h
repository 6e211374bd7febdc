#pragma once

#include "watch/Backoff.h"

#include <QtCore/QByteArray>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>

namespace Zyr {

/// Owns a watched path, and is called when its file has changed.
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

    /// Called on the watcher's thread, never while another thread is between Watcher::begin() and end(): when the file
    /// has changed and settled (`touched`), or at the time that the last call returned. Returns when to call again even
    /// without a change.
    virtual std::optional<Time> look(bool touched) = 0;

    const QByteArray path;

private:
    friend class Watcher;

    void touch();
    bool watchFailed(); ///< true for the first failure in a row, which should be reported
    void watchSucceeded();
    std::optional<Time> settledAt() const; ///< when to look at a dirty file
    std::optional<Time> dueAt() const;

    // All of this is guarded by the watcher's mutex.
    bool started = false;
    bool busy = false; ///< a thread is between begin() and end(), or in look()
    std::thread::id busyThread;
    bool dirty = false; ///< touched since the last look
    bool writerOpen = false;
    Time firstTouch;
    Time lastTouch;
    std::optional<Time> nextLook;
    std::optional<Time> nextWatch; ///< when to walk the path again: it leads elsewhere, or could not be watched
    Backoff watchAgain;            ///< after failed walks
};

} // namespace Zyr
