#pragma once

#include "base/LineBuffer.h"

namespace Zyr {

/// Appends UTF-16 as UTF-8, escaped for a double-quoted field of a one-line record, up to the first '%', NUL or lone
/// surrogate, which need more than a look at the character. Returns where it stopped, or `end`.
const char16_t* appendEscapedUtf8(const char16_t* from, const char16_t* end, LineBuffer& to);

} // namespace Zyr
