// Compiles a line's pattern, bounds what it may add to a record, and formats records with it.

#include "line/LinePattern.h"

#include "base/VectorRegisters.h"
#include "line/CalendarText.h"
#include "line/FieldWriter.h"
#include "line/TimeField.h"

#include <Poco/Exception.h>
#include <Poco/NumberParser.h>
#include <Poco/StringTokenizer.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

#include <sys/utsname.h>

namespace Zyr {

namespace {

constexpr char timeRun = '\1'; // a field for a run of time fields

/// A hash that tells patterns apart. Not the address: it may be reused, and several loggers mostly have equal patterns.
std::uint64_t numberOf(std::string_view pattern) noexcept
{
    std::uint64_t number = 0xcbf29ce484222325;
    for (const char character : pattern)
        number = (number ^ std::uint8_t(character)) * 0x100000001b3;
    return number != 0 ? number : 1;
}

/// Limits the pattern, and what it adds to each line by itself: one "%v[60000]" makes 60,000 bytes of nine.
constexpr int maxBytes = 4096;
constexpr std::size_t maxTexts = 32;

/// The first character, in UTF-8.
std::string_view initial(std::string_view name) noexcept
{
    std::size_t size = std::min<std::size_t>(name.size(), 1);
    while (size < name.size() && (name[0] & 0xC0) == 0xC0 && (name[size] & 0xC0) == 0x80)
        ++size;
    return name.substr(0, size);
}

char take(std::string_view& pattern)
{
    const char first = pattern[0];
    pattern.remove_prefix(1);
    return first;
}

/// Takes what is before the next ']', or all the rest.
std::string takeBracket(std::string_view& pattern)
{
    const std::size_t size = std::min(pattern.find(']'), pattern.size());
    std::string content(pattern.substr(0, size));
    pattern.remove_prefix(std::min(size + 1, pattern.size()));
    return content;
}

std::size_t parseWidth(const std::string& text)
{
    int width = 0;
    return Poco::NumberParser::tryParse(text, width) ? std::size_t(std::clamp(width, 0, maxBytes + 1)) : 0;
}

} // namespace

LinePattern::LinePattern(Source text)
    : origin(std::move(text))
    , number(numberOf(origin.pattern))
{
    const Poco::StringTokenizer list(origin.priorityNames, ",;", Poco::StringTokenizer::TOK_TRIM);
    if (list.count() != names.size())
        throw Poco::SyntaxException("priorityNames property must specify a comma-separated list of 8 property names");
    std::copy(list.begin(), list.end(), names.begin());
    if (origin.pattern.size() > std::size_t(maxBytes))
        throw Poco::InvalidArgumentException("the pattern is longer than 4096 bytes");
    compile();
    checkGrowth();
}

/// Patterns mean what they mean to POCO, in odd cases too: brackets after other letters than 'v' are dropped, an
/// unclosed bracket reaches to the end, a '%' at the end and unknown letters give nothing.
void LinePattern::compile()
{
    bool localTime = origin.localTime;
    for (std::string_view rest = origin.pattern; !rest.empty();) {
        const char character = take(rest);
        if (character != '%') {
            literals += character;
            continue;
        }
        if (rest.empty())
            break;
        const char letter = take(rest);
        if (letter == '%') {
            literals += '%';
            continue;
        }
        std::size_t argument = 0;
        if (letter == '[') {
            argument = parameters.size();
            parameters.push_back(takeBracket(rest));
        } else if (rest.starts_with('[')) {
            take(rest);
            argument = parseWidth(takeBracket(rest));
        }
        if (letter != 'L' || !std::exchange(localTime, true))
            addField(letter, argument);
    }
    addField(0, 0); // for the literal behind the last field
    fixedSize = literals.size() + fields.size() * FieldWriter::maxFixedField + FieldWriter::copiedAtOnce;
    literals.append(FieldWriter::copiedAtOnce, '\0');
    foldTimeFields();
}

void LinePattern::checkGrowth() const
{
    std::size_t widths = 0;
    std::size_t texts = 0; // of any length: each repeats a long one
    for (const Field& field : fields) {
        widths += field.letter == 'v' ? field.argument : 0;
        texts += std::string_view("tsvpUOTN[") // what format() shows by text() or padded()
                     .find(field.letter) != std::string_view::npos;
    }
    if (widths > std::size_t(maxBytes))
        throw Poco::InvalidArgumentException("the widths of the pattern add up to more than 4096 bytes");
    if (texts > maxTexts)
        throw Poco::InvalidArgumentException("the pattern shows more than 32 texts of a record");
}

/// Turns each run of time fields into one field, which is formatted once a second, where CalendarText::RunCache has
/// room.
void LinePattern::foldTimeFields()
{
    std::vector<Field> folded;
    std::size_t runs = 0;
    std::size_t bytes = 0;
    for (const Field& field : fields) {
        if (field.letter == 'L') // the fields behind it show another time zone
            return timeFields.clear();
        if (!isTimeField(field.letter)) {
            folded.push_back(field);
            continue;
        }
        if (folded.empty() || folded.back().letter != timeRun)
            folded.push_back({timeRun, field.literal, 0, std::uint32_t(runs++)});
        bytes += field.literalSize + maxTimeField;
        timeFields.push_back(field);
        timeFields.back().argument = folded.back().argument;
    }
    if (runs > CalendarText::RunCache::maxRuns || bytes > CalendarText::RunCache::room)
        timeFields.clear();
    else
        fields = std::move(folded);
}

void LinePattern::addField(char letter, std::size_t argument)
{
    if (letter == timeRun) // means nothing to POCO
        letter = 0;
    showsTime = showsTime || isTimeField(letter);
    const std::uint32_t literal = fields.empty() ? 0 : fields.back().literal + fields.back().literalSize;
    fields.push_back({letter, literal, std::uint32_t(literals.size()) - literal, std::uint32_t(argument)});
}

void LinePattern::format(const Poco::Message& message, LineBuffer& line) const
{
    cleanVectorRegisters();
    constexpr int perSecond = 1'000'000;
    const std::int64_t microseconds = message.getTime().epochMicroseconds();
    std::int64_t second = microseconds / perSecond;
    std::int64_t rest = microseconds % perSecond;
    if (rest < 0) { // before the epoch
        --second;
        rest += perSecond;
    }
    const auto fraction = std::uint32_t(rest);
    const CalendarText* time = showsTime ? &CalendarText::of(second, origin.localTime) : nullptr;
    const CalendarText::RunCache* const runCache = timeFields.empty() ? nullptr : &cachedRuns(*time);

    FieldWriter out(line, fixedSize);
    for (const Field& field : fields) {
        out.literal(literals.data() + field.literal, field.literalSize);
        switch (field.letter) {
        case 's':
            out.text(message.getSource());
            break;
        case 'v':
            out.padded(message.getSource(), field.argument);
            break;
        case 't':
            out.text(message.getText());
            break;
        case 'l':
            out.number(int(message.getPriority()));
            break;
        case 'p':
        case 'q': {
            char digits[12];
            const std::string_view name = priorityName(message.getPriority(), digits);
            out.text(field.letter == 'p' ? name : initial(name));
            break;
        }
        case 'P':
            out.number(message.getPid());
            break;
        case 'T':
            out.text(message.getThread());
            break;
        case 'I':
            out.number(message.getTid());
            break;
        case 'N':
            if (utsname system; ::uname(&system) == 0)
                out.text(system.nodename);
            break;
        case 'U':
        case 'O':
            if (const char* const path = message.getSourceFile()) {
                const char* const slash = field.letter == 'O' ? std::strrchr(path, '/') : nullptr;
                out.text(slash ? slash + 1 : path);
            }
            break;
        case 'u':
            out.number(message.getSourceLine());
            break;
        case '[':
            if (const std::string& name = parameters[field.argument]; message.has(name))
                out.text(message.get(name));
            break;
        case 'i':
            out.fraction(fraction / 1000, 3);
            break;
        case 'c':
            out.fraction(fraction / 100'000, 1);
            break;
        case 'F':
            out.fraction(fraction, 6);
            break;
        case 'L':
            time = &CalendarText::of(second, true);
            break;
        case 'E':
            out.number(second);
            break;
        case timeRun:
            out.literal(runCache->text + runCache->begins[field.argument], runCache->sizeOf(field.argument));
            break;
        default:
            if (time)
                putTimeField(out, field.letter, *time);
            break;
        }
    }
    out.finish();
}

/// The runs of time fields of a second; its first record fills the cache.
const CalendarText::RunCache& LinePattern::cachedRuns(const CalendarText& time) const
{
    CalendarText::RunCache& runCache = time.runCache();
    if (runCache.pattern == number)
        return runCache;
    LineBuffer line;
    FieldWriter out(line, fixedSize);
    std::size_t run = 0;
    for (std::size_t i = 0; i < timeFields.size(); ++i) {
        const Field& field = timeFields[i];
        if (field.argument == run)
            runCache.begins[run++] = std::uint8_t(out.size());
        out.literal(literals.data() + field.literal, field.literalSize);
        putTimeField(out, field.letter, time);
    }
    out.finish();
    runCache.begins[run] = std::uint8_t(line.view().size());
    line.view().copy(runCache.text, sizeof runCache.text);
    runCache.pattern = number;
    return runCache;
}

/// A priority without a name is shown as its number.
std::string_view LinePattern::priorityName(int priority, char (&digits)[12]) const noexcept
{
    const auto index = std::size_t(priority) - 1;
    if (index < names.size())
        return names[index];
    return {digits, std::size_t(std::to_chars(digits, std::end(digits), priority).ptr - digits)};
}

} // namespace Zyr
