#pragma once

#include <string_view>

namespace Zyr {

/// Writes to standard error as much as it takes without blocking. Raises no signal.
///
/// A pipe takes up to PIPE_BUF bytes atomically: all or none, and not mixed with others' output.
///
/// @return the number of bytes that it took
std::size_t writeToStandardError(std::string_view text) noexcept;

/// For a forked child: the thread that was writing at the fork does not exist there.
void resetStandardErrorInChild() noexcept;

} // namespace Zyr
