// A number and its unit, the common form of sizes, times and counts.

#include "settings/Quantity.h"

#include <charconv>

namespace Zyr {

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\n\v\f\r";
    const auto first = text.find_first_not_of(blanks);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::optional<Quantity> Quantity::parse(std::string_view text)
{
    text = trimmed(text);
    Quantity result;
    std::uint64_t number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range)
        return {};
    if (error == std::errc{})
        result.number = number;
    result.unit = trimmed(text.substr(static_cast<std::size_t>(rest - text.data())));
    return result;
}

} // namespace Zyr
