#pragma once

#include "chain/format/LineBuffer.h"
#include "rendering/LocaleNumbers.h"

namespace Zyr {

class LogMessage;

/// Appends what message.getStr().toUtf8() gives. False, with nothing appended, where only the literal steps give it,
/// and for texts with a NUL.
bool renderText(const LogMessage& message, LocaleNumbers& numbers, LineBuffer& to);

} // namespace Zyr
