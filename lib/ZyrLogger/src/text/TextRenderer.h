#pragma once

#include "base/LineBuffer.h"
#include "text/LocaleNumbers.h"

#include <optional>

namespace Zyr {

class LogMessage;

/// By how many UTF-16 units a text may become longer than it and its values are together, before it is escaped.
inline constexpr qsizetype mostGrowth = qsizetype(1) << 20;

/// Appends what message.getStr().toUtf8() gives. False, with nothing appended, where only the literal steps give it,
/// for texts with a NUL and where values take more than `mostGrowth`. Values may be converted more than once, or not at
/// all.
///
/// `numbers` are made when the first number is rendered: threads begin to log when Qt's locales are gone already.
bool renderText(const LogMessage& message, std::optional<LocaleNumbers>& numbers, LineBuffer& to);

} // namespace Zyr
