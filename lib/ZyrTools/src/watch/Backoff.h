#pragma once

#include <algorithm>
#include <chrono>

namespace Zyr {

/// When to retry: after one second, then after twice as long each time, up to 30 seconds.
class Backoff
{
public:
    using Time = std::chrono::steady_clock::time_point;

    bool isFirst() const noexcept { return wait == wait.zero(); }

    Time next()
    {
        using namespace std::chrono_literals;
        wait = isFirst() ? 1s : std::min<std::chrono::seconds>(2 * wait, 30s);
        return std::chrono::steady_clock::now() + wait;
    }

    void reset() noexcept { wait = wait.zero(); }

private:
    std::chrono::seconds wait{0};
};

} // namespace Zyr
