#pragma once

#include "base/LineBuffer.h"

namespace Zyr {

/// Appends UTF-16 as UTF-8, escaped for a double-quoted field of a one-line record, as far as each character can be
/// taken for itself: up to a '%', a NUL or a surrogate without its other half. Returns where it stopped, or `end`.
const char16_t* appendEscapedUtf8(const char16_t* from, const char16_t* end, LineBuffer& to);

} // namespace Zyr
