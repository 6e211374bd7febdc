#include "caller/CallerThread.h"

#include "chain/ReaderSlot.h"

namespace Zyr {

namespace {

constinit thread_local bool ended = false;

} // namespace

constinit thread_local CallerThread* CallerThread::mine = nullptr;

class CallerThread::End
{
public:
    ~End()
    {
        ended = true;
        ReaderSlot::giveBack();
        delete std::exchange(mine, nullptr);
    }
    bool awaited = false;
};

CallerThread* CallerThread::begin() noexcept
try {
    if (ended)
        return nullptr;
    static thread_local End end;
    end.awaited = true;
    mine = new CallerThread;
    ReaderSlot::take();
    return mine;
} catch (const std::bad_alloc&) {
    return nullptr;
}

void CallerThread::afterForkInChild() noexcept
{
    ReaderSlot::afterForkInChild();
    if (mine)
        mine->record.afterForkInChild();
}

} // namespace Zyr
