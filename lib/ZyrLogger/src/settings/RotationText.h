#pragma once

#include "settings/FileSettings.h"

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

/// Numbers of units and files end where POCO's would overflow.
bool isInRange(const std::optional<std::uint64_t>& number);
extern const char* const numberRange; ///< says so at the end of a sentence

} // namespace Zyr
