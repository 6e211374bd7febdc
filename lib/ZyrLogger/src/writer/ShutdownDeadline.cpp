// The time that is left, and whether the main thread has ended.

#include "writer/ShutdownDeadline.h"

#include <atomic>

#include <unistd.h>

namespace Zyr::ShutdownDeadline {

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::seconds whileTheProgramGoesOn = 2s;
constexpr std::chrono::seconds atItsEnd = 8s;

constinit std::atomic<bool> ending = false;
constinit std::atomic<Clock::rep> budgetEnd = 0;

struct MainThreadMark
{
    ~MainThreadMark()
    {
        if (::gettid() == ::getpid())
            programEnds();
    }
    bool set = false;
};

thread_local MainThreadMark mainThreadMark;

} // namespace

void programEnds() noexcept
{
    ending.store(true, std::memory_order_relaxed);
}

void watchMainThread() noexcept
{
    mainThreadMark.set = true; // made by being used
}

Clock::time_point limit(Clock::time_point now) noexcept
{
    if (!ending.load(std::memory_order_relaxed))
        return now + whileTheProgramGoesOn;
    Clock::rep end = 0;
    const Clock::rep mine = (now + atItsEnd).time_since_epoch().count();
    return Clock::time_point(Clock::duration(budgetEnd.compare_exchange_strong(end, mine) ? mine : end));
}

} // namespace Zyr::ShutdownDeadline
