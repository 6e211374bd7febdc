#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Zyr {

/// `text` without the blanks around it.
std::string_view trimmed(std::string_view text);

/// A text like "3 M", parsed. Blanks around either part do not matter.
struct Quantity
{
    std::optional<std::uint64_t> number; ///< nothing if the text does not begin with a digit
    std::string_view unit;               ///< the rest of the text, which has to outlive this

    /// Nothing when the number is too large.
    static std::optional<Quantity> parse(std::string_view text);
};

} // namespace Zyr
