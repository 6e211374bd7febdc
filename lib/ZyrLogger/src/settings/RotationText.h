#pragma once

#include "settings/RotationRule.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Zyr {

struct Quantity;

/// The rule that the property "rotation" describes. Throws like Poco::FileChannel: Poco::SyntaxException for what is
/// no number or no weekday in a time of day, else Poco::InvalidArgumentException.
RotationRule parseRotation(const std::string& text);

/// How long so many seconds, minutes, hours, days, weeks or months of 30 days are. More than 100 years count as 100,
/// so that sums of time do not overflow.
std::optional<std::chrono::seconds> timeSpan(const Quantity& text);

/// Whether so many units or files are legal: at least one, and no more than POCO's ints hold.
bool isInRange(const std::optional<std::uint64_t>& number);
extern const char* const numberRange; ///< the same, for the end of a message

} // namespace Zyr
