// Debouncing: when a burst of changes counts as over, so that the client looks at its file, and when to retry.

#include "watch/WatchClient.h"

#include <algorithm>

using namespace std::chrono_literals;

namespace Zyr {

namespace {

/// A file has settled when it has not changed for a while and nobody is known to be writing it.
constexpr auto settleTime = 100ms;
constexpr auto maxSettlingTime = 2s;

} // namespace

WatchClient::~WatchClient() = default;

std::optional<WatchClient::Time> WatchClient::settledAt() const
{
    if (!dirty)
        return std::nullopt;
    const Time latest = firstTouch + maxSettlingTime;
    return writerOpen ? latest : std::min(latest, lastTouch + settleTime);
}

std::optional<WatchClient::Time> WatchClient::dueAt() const
{
    const auto settled = settledAt();
    return settled && nextLook ? std::min(settled, nextLook) : settled ? settled : nextLook;
}

void WatchClient::touch()
{
    lastTouch = std::chrono::steady_clock::now();
    if (dirty)
        return;
    dirty = true;
    writerOpen = false;
    firstTouch = lastTouch;
}

bool WatchClient::watchFailed()
{
    const bool isFirstFailure = watchAgain.isFirst();
    nextWatch = watchAgain.next();
    return isFirstFailure;
}

void WatchClient::watchSucceeded()
{
    nextWatch.reset();
    if (!watchAgain.isFirst())
        touch(); // changes while nothing was watched caused no event
    watchAgain.reset();
}

} // namespace Zyr
