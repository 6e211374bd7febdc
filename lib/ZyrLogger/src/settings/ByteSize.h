#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Zyr {

/// The bytes that a text of the form `<n>`, `<n> K` or `<n> M` (of 1024 and 1024 * 1024 bytes) gives, which may be 0.
/// Nothing for any other text and for a size that 64 bits do not hold.
std::optional<std::uint64_t> parseByteSize(std::string_view text);

} // namespace Zyr
