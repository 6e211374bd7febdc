// Starts and stops clients and the watcher's thread, without deadlock when callbacks do so.

#include "watch/Watcher.h"

#include "file/FileBytes.h"
#include "system/BlockedSignals.h"

#include <cerrno>
#include <utility>

#include <pthread.h>
#include <sys/eventfd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace Zyr {

namespace {

constexpr auto maxWait = 1s; ///< for the end of the thread

} // namespace

Watcher& Watcher::instance()
{
    // Never destroyed, since static objects may stop listening after everything else is gone.
    static Watcher* const watcher = new Watcher;
    return *watcher;
}

Watcher::Watcher()
{
    // Unchecked: the mutex is held from one handler to the next.
    ::pthread_atfork([]() ZYR_UNCHECKED_LOCKING { instance().mutex.lock(); },
                     []() ZYR_UNCHECKED_LOCKING { instance().mutex.unlock(); },
                     []() ZYR_UNCHECKED_LOCKING { instance().mutex.unlock(); });
}

Watcher::Begin Watcher::begin(const Client& client)
{
    if (isForked()) {
        const bool isInside = client->busy && client->busyThread == std::this_thread::get_id();
        if (std::exchange(client->started, true) || isInside)
            return Begin::Started;
        client->busy = true;
        client->busyThread = std::this_thread::get_id();
        return Begin::First;
    }
    const Guard guard(mutex);
    if (!client->started)
        waitUntilIdle(client);
    if (client->started && (client->busy || isWatched(client)))
        return Begin::Started;
    const bool again = std::exchange(client->started, true);
    if (client->busy)
        return Begin::Resumed;
    client->busy = true;
    client->busyThread = std::this_thread::get_id();
    return again ? Begin::Again : Begin::First;
}

bool Watcher::isWatched(const Client& client) const
{
    return clients.count(client.get()) > 0 && client->watchAgain.isFirst();
}

bool Watcher::watch(const Client& client, QString& problem)
{
    const Guard guard(mutex);
    if (!client->started)
        return false;
    QString reason = ensureRunning();
    clients[client.get()] = client;
    if (!reason.isEmpty()) {
        if (client->watchFailed())
            problem = u"cannot be watched now, which the next logger or load tries again: "_s + reason;
        return false;
    }

    ++startingWalks;
    const int error = walk(client);
    --startingWalks;
    wake(); // the thread read no events during the walk
    if (!client->started)
        return false;
    if (error != 0 && error != EAGAIN) {
        if (client->watchFailed())
            problem = u"cannot be watched now, which is tried again: "_s + errorText(error);
        return false;
    }
    client->watchSucceeded();
    if (error == EAGAIN) { // a part of the path is being moved all the time; the thread tries again
        client->touch();
        client->nextWatch = client->lastTouch;
    }
    return true;
}

void Watcher::touch(const Client& client)
{
    const Guard guard(mutex);
    if (!client->started)
        return;
    client->touch();
    wake();
}

void Watcher::end(const Client& client, std::optional<Time> nextLook, bool failed)
{
    if (isForked()) {
        client->busy = false;
        client->started = client->started && !failed;
        return;
    }
    const Guard guard(mutex);
    client->busy = false;
    if (failed && clients.count(client.get()) == 0)
        client->started = false;
    client->nextLook = nextLook;
    changed.notifyAll();
    wake();
}

void Watcher::stop(const Client& client)
{
    if (isForked()) {
        client->started = false;
        return;
    }
    const Guard guard(mutex);
    client->started = false;
    client->dirty = false;
    client->nextLook.reset();
    client->nextWatch.reset();
    client->watchAgain.reset();
    if (clients.erase(client.get()) > 0 && paths)
        paths->forget(client.get());
    waitUntilIdle(client);
    if (clients.empty() && thread.joinable())
        endThread();
}

bool Watcher::isBusyHere(const Client& client)
{
    const Guard guard(mutex);
    return client->busy && client->busyThread == std::this_thread::get_id();
}

/// Whether waiting for the client would deadlock: this thread keeps it busy, or the thread that does is itself waiting
/// for a client, and so on back to this thread.
bool Watcher::waitsForThisThread(const WatchClient* client) const
{
    for (std::size_t threads = 0; threads <= waiting.size(); ++threads) {
        if (!client->busy)
            return false;
        if (client->busyThread == std::this_thread::get_id())
            return true;
        const auto next = waiting.find(client->busyThread);
        if (next == waiting.end())
            return false;
        client = next->second;
    }
    return false;
}

void Watcher::waitUntilIdle(const Client& client)
{
    while (client->busy && !waitsForThisThread(client.get())) {
        waiting[std::this_thread::get_id()] = client.get();
        changed.wait(mutex);
        waiting.erase(std::this_thread::get_id());
    }
}

/// Returns why there is no thread; empty if there is one. A new thread begins by watching all clients.
QString Watcher::ensureRunning()
{
    if (thread.joinable() && !ended) {
        quit = false;
        changed.notifyAll(); // ends the wait in endThread(): the thread is needed again
        return {};
    }
    if (thread.joinable())
        thread.join();
    ended = false;
    quit = false;
    auto newPaths = std::make_shared<PathWatch>();
    if (newPaths->fd() < 0)
        return u"no inotify instance: "_s + errorText(errno);
    Descriptor newWakeUp(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!newWakeUp)
        return u"no eventfd: "_s + errorText(errno);
    try {
        const BlockedSignals blocked;
        thread = std::thread(&Watcher::run, this); // waits for the mutex first
    } catch (const std::system_error& error) {
        return u"no thread: "_s + errorText(error.code().value());
    }
    paths = std::move(newPaths);
    wakeUp = std::move(newWakeUp);
    touchAll();
    return {};
}

void Watcher::wake() const
{
    if (wakeUp)
        ::eventfd_write(wakeUp.get(), 1);
}

void Watcher::endThread()
{
    quit = true;
    wake();
    // A thread cannot join itself, and a callback may take long: ensureRunning() or the next endThread() joins then.
    if (thread.get_id() == std::this_thread::get_id() || serving)
        return;
    // With a limit, as a walk may hang in a file system that does not answer.
    const auto latest = std::chrono::steady_clock::now() + maxWait;
    while (!ended && quit && std::chrono::steady_clock::now() < latest)
        changed.waitUntil(mutex, latest);
    if (ended && thread.joinable())
        thread.join();
}

} // namespace Zyr
