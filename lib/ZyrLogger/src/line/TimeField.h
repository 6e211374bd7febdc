#pragma once

#include "line/CalendarText.h"
#include "line/FieldWriter.h"

#include <string_view>

namespace Zyr {

/// Whether a pattern's letter stands for a field that is the same for all records of a second.
constexpr bool isTimeField(char letter) noexcept
{
    constexpr std::string_view letters = "wWbBdefmnoyYHhaAMSzZ";
    return letters.find(letter) != letters.npos;
}

inline constexpr std::size_t maxTimeField = std::string_view("Wednesday").size();

/// Writes such a field, and nothing for other letters.
void putTimeField(FieldWriter& out, char letter, const CalendarText& time) noexcept;

} // namespace Zyr
