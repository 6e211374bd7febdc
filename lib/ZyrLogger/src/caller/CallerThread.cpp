// When what a thread keeps is made, and when it is deleted.

#include "caller/CallerThread.h"

#include "chain/ReaderSlot.h"

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include <pthread.h>

namespace Zyr {

namespace {

constinit std::atomic<bool> hasKey = false;
constinit pthread_key_t key = {};

} // namespace

/// Deletes a thread's object after all thread_local destructors, which may log; and once more where the destructors of
/// other keys log. The main thread keeps its object, since static objects log from there.
class CallerThread::KeyLife
{
public:
    KeyLife() noexcept { hasKey = ::pthread_key_create(&key, &end) == 0; }
    ~KeyLife()
    {
        if (hasKey.exchange(false))
            ::pthread_key_delete(key); // the library may be unloaded before threads end
    }
    KeyLife(const KeyLife&) = delete;
    KeyLife& operator=(const KeyLife&) = delete;
};

constinit thread_local CallerThread* CallerThread::mine = nullptr;

/// From the beginning, since another thread may fork while the first one begins to log.
const CallerThread::KeyLife CallerThread::keyLife;

CallerThread* CallerThread::begin() noexcept
{
    auto made = std::unique_ptr<CallerThread>(new (std::nothrow) CallerThread);
    if (!made || !hasKey || ::pthread_setspecific(key, made.get()) != 0)
        return nullptr;
    ReaderSlot::acquire();
    return mine = made.release();
}

void CallerThread::end(void*) noexcept
{
    ReaderSlot::release();
    delete std::exchange(mine, nullptr);
}

void CallerThread::afterForkInChild() noexcept
{
    ReaderSlot::afterForkInChild();
    if (mine)
        mine->record.afterForkInChild();
}

} // namespace Zyr
