#pragma once

#include <string_view>

namespace Zyr {

/// Writes to standard error what it takes at once. Raises no signal.
///
/// Up to PIPE_BUF bytes get into a pipe whole or not at all, and with nothing of others in between.
///
/// @return the number of bytes that it took
std::size_t writeToStandardError(std::string_view text) noexcept;

/// For the child of a fork, where a thread that is not there may have been writing.
void freeStandardErrorInChild() noexcept;

} // namespace Zyr
