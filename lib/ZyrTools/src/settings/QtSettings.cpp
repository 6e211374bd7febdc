// Keeps Qt's static objects alive during loads on the watcher's thread, and its lock free during a fork.

#include "settings/QtSettings.h"

#include "base/Mutex.h"
#include "watch/Watcher.h"

#include <atomic>
#include <mutex>

#include <pthread.h>

namespace Zyr::QtSettings {

namespace {

constinit std::atomic<bool> isExiting = false;
constinit Mutex qtMutex; ///< held while Qt holds its global lock

/// Recursive: a listener may call exit() in a load. Never destroyed: the watcher's thread may still wait for it.
std::recursive_mutex& loadMutex()
{
    static auto& mutex = *new std::recursive_mutex;
    return mutex;
}

class QtLifetime
{
public:
    QtLifetime()
    {
        // Qt creates its static objects at first use: before this one, so that they are destroyed after it. Without the
        // lock: the caller may hold one that fork() takes after it.
        QSettings(u"/dev/null/none.ini"_qs, QSettings::IniFormat).sync();
        loadMutex();
        // Unchecked: the mutex is held from one handler to the next.
        ::pthread_atfork([]() ZYR_UNCHECKED_LOCKING { qtMutex.lock(); },
                         []() ZYR_UNCHECKED_LOCKING { qtMutex.unlock(); },
                         []() ZYR_UNCHECKED_LOCKING { qtMutex.unlock(); });
    }
    ~QtLifetime()
    {
        isExiting = true;
        if (!Watcher::instance().isForked()) // in a child the thread that would finish the load does not exist
            const std::lock_guard finished(loadMutex());
    }
    QtLifetime(const QtLifetime&) = delete;
    QtLifetime& operator=(const QtLifetime&) = delete;
};

} // namespace

void prepare()
{
    static const QtLifetime lifetime;
}

void Destroy::operator()(QSettings* settings) const
{
    const Guard guard(qtMutex);
    delete settings;
}

Object open(const QString& file)
{
    const Guard guard(qtMutex);
    return Object(new QSettings(file, QSettings::IniFormat));
}

Load::Load()
{
    loadMutex().lock();
}

Load::~Load()
{
    loadMutex().unlock();
}

bool Load::mayBegin() const noexcept
{
    return !isExiting;
}

} // namespace Zyr::QtSettings
