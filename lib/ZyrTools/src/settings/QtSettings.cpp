// Keeps Qt's static objects alive during loads on the watcher's thread, and its lock free during a fork.

#include "settings/QtSettings.h"

#include "watch/Watcher.h"

#include <QtCore/QSettings>

#include <atomic>

#include <pthread.h>

namespace Zyr::QtSettings {

namespace {

constinit std::atomic<bool> ending = false;
constinit std::mutex objectMutex;

/// Recursive: a listener may end the process. Never destroyed, since the watcher's thread may still be waiting for it.
std::recursive_mutex& loadMutex()
{
    static auto& mutex = *new std::recursive_mutex;
    return mutex;
}

class Life
{
public:
    Life()
    {
        // Qt makes its objects when they are first used; they have to be there before this one is.
        QSettings(u"/dev/null/none.ini"_qs, QSettings::IniFormat).sync();
        loadMutex();
        ::pthread_atfork([] { objectMutex.lock(); }, [] { objectMutex.unlock(); }, [] { objectMutex.unlock(); });
    }
    ~Life()
    {
        ending = true;
        if (!Watcher::instance().isForked()) // where nobody is left to finish a load
            const std::lock_guard finished(loadMutex());
    }
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;
};

} // namespace

void prepare()
{
    static const Life life;
}

std::mutex& lifeMutex()
{
    return objectMutex;
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
    return !ending;
}

} // namespace Zyr::QtSettings
