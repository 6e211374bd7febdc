// What each failure and success of the store changes.

#include "writer/StoreHealth.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace Zyr {

StoreHealth::StoreHealth()
{
    failure.reserve(maxReason);
}

void StoreHealth::succeeded() noexcept
{
    failing = reported = false;
    backoff = {};
    fullSince.reset();
}

void StoreHealth::failed(const std::error_code& error, Clock::time_point now) noexcept
{
    if (!std::exchange(failing, true))
        fullSince.reset();
    backoff = std::clamp(backoff * 2, minBackoff, maxBackoff);
    retryAt = now + backoff;
    try {
        failure = std::string_view(error.message()).substr(0, maxReason);
    } catch (const std::bad_alloc&) {
        failure = std::string_view(std::strerror(ENOMEM)).substr(0, maxReason);
    }
}

bool StoreHealth::shouldReport(Clock::time_point now) noexcept
{
    if (reported || (lastReport && now - *lastReport <= quietTime))
        return false;
    reported = true;
    lastReport = now;
    return true;
}

StoreHealth::Clock::time_point StoreHealth::waitLimit(Clock::time_point now) noexcept
{
    if (!fullSince)
        fullSince = now;
    return *fullSince + maxCallerWait;
}

} // namespace Zyr
