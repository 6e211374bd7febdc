#pragma once

#include "settings/RotationRule.h"

#include <chrono>

namespace Zyr {

/// The first second after `after`, both since the epoch in UTC, at which the wall clock reaches the weekday, hour and
/// minute of `rule`. A time that the change to summer time skips is reached at the jump; one that occurs twice at the
/// change back is reached twice.
std::chrono::seconds firstReached(const RotationRule& rule, bool localTime, std::chrono::seconds after);

} // namespace Zyr
