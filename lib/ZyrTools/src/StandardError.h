#pragma once

#include <string_view>

namespace Zyr {

/// Whether standard error would take something now, without making whoever writes wait.
bool standardErrorTakesMore() noexcept;

/// Writes to standard error what it takes at once. Raises no signal.
///
/// Up to PIPE_BUF bytes get into a pipe whole or not at all, and with nothing of others in between.
///
/// @return the number of bytes that it took
std::size_t writeToStandardError(std::string_view text) noexcept;

} // namespace Zyr
