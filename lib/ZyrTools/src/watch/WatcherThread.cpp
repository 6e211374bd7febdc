// The watcher's thread: reads events, walks paths again, and calls clients whose files have changed.

#include "watch/Watcher.h"

#include "file/FileBytes.h"

#include <ZyrTools/Misc.h>

#include <QtCore/QFile>
#include <QtCore/QScopeGuard>

#include <algorithm>
#include <cerrno>
#include <new>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace Zyr {

namespace {

constexpr auto recoveryTime = 100ms;

} // namespace

int Watcher::timeout() const
{
    std::optional<Time> next;
    for (const auto& [address, client] : clients) {
        const auto due = client->busy ? std::nullopt : client->dueAt();
        for (const auto& time : {due, client->nextWatch}) {
            if (time && (!next || *time < *next))
                next = time;
        }
    }
    if (!next)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - std::chrono::steady_clock::now());
    return int(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, 60'000));
}

void Watcher::readEvents()
{
    paths->readEvents([this](const PathWatch::Event& event) ZYR_REQUIRES(mutex) {
        const auto found = clients.find(event.owner);
        if (found == clients.end())
            return;
        const Client& client = found->second;
        client->touch();
        client->writerOpen = event.written || (client->writerOpen && !event.moved && !event.closed);
        if (event.pathChanged)
            client->nextWatch = client->lastTouch;
    });
}

/// Watches the path of a client, without the mutex while the file system may block.
/// @return 0 or an errno value
int Watcher::walk(const Client& client)
{
    const auto walked = paths; // shared: the thread may end meanwhile, and a new one begin with its own
    const Unlocked unlocked(mutex);
    const Guard alone(walkMutex);
    return walkUnlocked(client, *walked);
}

int Watcher::walkUnlocked(const Client& client, PathWatch& walked)
{
    int error = ENOMEM;
    PathWatch::WatchSet watches;
    try {
        PathWatch::Masks others;
        {
            const Guard guard(mutex);
            others = walked.beginWalk(client.get());
        }
        error = walked.follow(client->path, others, watches);
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    const Guard guard(mutex);
    try {
        walked.endWalk(client.get(), watches);
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    if (clients.count(client.get()) == 0)
        walked.forget(client.get());
    return error;
}

/// Comes before the clients' looks: a change after the walk causes an event, one before it is seen by the look.
void Watcher::watchDueClients()
{
    const auto now = std::chrono::steady_clock::now();
    std::vector<Client> due;
    for (const auto& [address, client] : clients) {
        if (client->nextWatch && *client->nextWatch <= now)
            due.push_back(client);
    }
    for (const Client& client : due) {
        if (clients.count(client.get()) == 0)
            continue;
        const int error = walk(client);
        if (clients.count(client.get()) == 0)
            continue;
        if (error == 0) {
            client->watchSucceeded();
        } else if (client->watchFailed()) {
            const Unlocked unlocked(mutex);
            Misc::reportProblem(QFile::decodeName(client->path),
                                u"cannot be watched as it lies now, which is tried again: "_s + errorText(error));
        }
    }
}

void Watcher::serveDueClients()
{
    const auto now = std::chrono::steady_clock::now();
    std::vector<Client> due;
    for (const auto& [address, client] : clients) {
        const auto time = client->dueAt();
        if (time && *time <= now)
            due.push_back(client);
    }
    for (const Client& client : due) {
        if (!client->started || client->busy)
            continue;
        const auto settled = client->settledAt();
        const bool touched = settled && *settled <= now;
        if (touched)
            client->dirty = false;
        client->busy = true;
        client->busyThread = std::this_thread::get_id();
        serving = true;
        std::optional<Time> nextLook;
        {
            const auto done = qScopeGuard([&]() ZYR_REQUIRES(mutex) {
                serving = false;
                client->busy = false;
                client->nextLook = nextLook;
                changed.notifyAll();
            });
            const Unlocked unlocked(mutex);
            try {
                nextLook = client->look(touched);
            } catch (...) {
                Misc::reportProblem(QFile::decodeName(client->path), Misc::currentExceptionText());
            }
        }
        if (isForked())
            return;
    }
}

void Watcher::runOnce()
{
    const bool listens = startingWalks == 0;
    pollfd sources[] = {{wakeUp.get(), POLLIN, 0}, {listens ? paths->fd() : -1, POLLIN, 0}};
    const int wait = timeout();
    {
        const Unlocked unlocked(mutex);
        ::poll(sources, std::size(sources), wait);
    }
    eventfd_t count;
    ::eventfd_read(wakeUp.get(), &count);
    if (startingWalks == 0)
        readEvents();
    watchDueClients();
    serveDueClients();
}

/// Makes a walk and a look due for every client.
void Watcher::touchAll()
{
    for (const auto& [address, client] : clients) {
        client->touch();
        client->nextWatch = client->lastTouch;
    }
}

/// Events may have been lost in an exception, usually std::bad_alloc, so all clients look again.
void Watcher::recover()
{
    {
        const Unlocked unlocked(mutex);
        std::this_thread::sleep_for(recoveryTime); // no busy loop while memory is lacking
    }
    touchAll();
}

void Watcher::run()
{
    ::pthread_setname_np(::pthread_self(), "ZyrSettings");
    const Guard guard(mutex);
    while (!quit && !isForked()) {
        try {
            runOnce();
        } catch (const std::exception&) {
            recover();
        }
    }
    if (isForked())
        return;
    paths.reset();
    wakeUp = Descriptor();
    ended = true;
    changed.notifyAll();
}

} // namespace Zyr
