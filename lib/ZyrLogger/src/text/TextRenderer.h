#pragma once

#include "base/LineBuffer.h"
#include "text/LocaleNumbers.h"

#include <optional>

namespace Zyr {

class LogMessage;

/// Max. UTF-16 units by which a rendered text, not yet escaped, may exceed the text and its values together.
inline constexpr qsizetype maxGrowth = qsizetype(1) << 20;

/// Appends what message.getStr().toUtf8() gives. False, with nothing appended, where one pass is not enough, for texts
/// with a NUL and where values take more than `maxGrowth`. Values may be converted more than once, or not at all.
///
/// `numbers` are made when the first number is rendered: threads may log after Qt has destroyed its locales.
bool renderText(const LogMessage& message, std::optional<LocaleNumbers>& numbers, LineBuffer& to);

} // namespace Zyr
