#pragma once

#include "base/LineBuffer.h"
#include "line/CalendarText.h"

#include <Poco/Message.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Zyr {

/// What log lines look like: the pattern in the letters of Poco::PatternFormatter, compiled once. It never changes, so
/// that any number of threads can format with it.
class LinePattern
{
public:
    /// What the pattern is made of, as the formatter's properties have it.
    struct Source
    {
        std::string pattern;
        bool localTime = false;
        std::string priorityNames = "Fatal,Critical,Error,Warning,Notice,Information,Debug,Trace";

        bool operator==(const Source&) const = default;
    };

    /// Throws Poco::SyntaxException where there are not eight priority names, and Poco::InvalidArgumentException where
    /// the pattern would make lines too long.
    explicit LinePattern(Source text);

    const Source& source() const noexcept { return origin; }

    /// Appends the line of `message`, without a line end.
    void format(const Poco::Message& message, LineBuffer& line) const;

private:
    struct Field
    {
        char letter;           // POCO's; '[' is a parameter, 0 nothing
        std::uint32_t literal; // where the text before the field begins
        std::uint32_t literalSize;
        std::uint32_t argument; // the width of 'v', which parameter of '['
    };

    void compile();
    void checkGrowth() const;
    void foldTimeFields();
    const CalendarText::Shown& show(const CalendarText& time) const;
    void addField(char letter, std::size_t argument);
    std::string_view priorityName(int priority, char (&digits)[12]) const noexcept;

    const Source origin;
    const std::uint64_t number;
    std::array<std::string, 8> names;
    std::vector<std::string> parameters;
    std::vector<Field> fields;
    std::vector<Field> timeFields; // those of the runs, whose number is their argument; empty where none is folded
    std::string literals;          // and as many bytes more as are copied at once
    std::size_t fixedSize = 0;     // no line needs more, apart from texts of the record's own
    bool showsTime = false;
};

} // namespace Zyr
