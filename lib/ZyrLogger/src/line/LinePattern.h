#pragma once

#include "base/LineBuffer.h"
#include "line/CalendarText.h"

#include <Poco/Message.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Zyr {

/// What log lines look like: a pattern in the letters of Poco::PatternFormatter, compiled once. Immutable, so that any
/// number of threads can format with it.
class LinePattern
{
public:
    /// The formatter's properties.
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
        char letter;           // POCO's; '[': a parameter, 0: only the literal
        std::uint32_t literal; // offset of the text before the field
        std::uint32_t literalSize;
        std::uint32_t argument; // the width of 'v', the index of the parameter of '[' or of the run
    };

    void compile();
    void checkGrowth() const;
    void foldTimeFields();
    const CalendarText::RunCache& cachedRuns(const CalendarText& time) const;
    void addField(char letter, std::size_t argument);
    std::string_view priorityName(int priority, char (&digits)[12]) const noexcept;

    const Source origin;
    const std::uint64_t number;
    std::array<std::string, 8> names;
    std::vector<std::string> parameters;
    std::vector<Field> fields;
    std::vector<Field> timeFields; // of the runs, whose index is their argument; empty where none is folded
    std::string literals;          // padded by FieldWriter::copiedAtOnce
    std::size_t fixedSize = 0;     // max. bytes of a line without the record's own texts
    bool showsTime = false;
};

} // namespace Zyr
