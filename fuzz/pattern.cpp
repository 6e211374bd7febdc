// The line's pattern and the names of the priorities: any texts, refused where POCO refuses them or where they make
// lines too long, and formatted as POCO formats them where it is right.

#include "Check.h"

#include "chain/LineFormatter.h"

#include <Poco/Exception.h>
#include <Poco/NumberParser.h>
#include <Poco/StringTokenizer.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

using Poco::PatternFormatter;

namespace {

constexpr std::int64_t second = 1'000'000;
constexpr int tooWide = 4097;

/// One record and the texts that its line may be made of.
struct Record
{
    explicit Record(FuzzedDataProvider& input)
        : message(text(input), text(input),
                  Poco::Message::Priority(
                      input.ConsumeIntegralInRange(int(Poco::Message::PRIO_FATAL), int(Poco::Message::PRIO_TRACE))))
        , file(text(input))
    {
        // Years for which Poco::DateTime counts right, or any time at all.
        constexpr std::int64_t first = -12'000'000'000 * second;
        constexpr std::int64_t last = 253'402'300'799 * second;
        hasUsualTime = input.ConsumeProbability<float>() < 0.9f;
        message.setTime(hasUsualTime ? input.ConsumeIntegralInRange(first, last)
                                     : input.ConsumeIntegral<std::int64_t>());
        if (input.ConsumeBool())
            message.setSourceFile(file.c_str());
        message.setSourceLine(input.ConsumeIntegral<int>());
        message.setTid(input.ConsumeIntegral<long>());
        message.setThread(text(input));
        message.set(text(input), text(input));
    }

    std::string text(FuzzedDataProvider& input)
    {
        constexpr std::size_t longest = 60;
        const std::string made = input.ConsumeRandomLengthString(longest);
        hasLineBreak = hasLineBreak || made.find_first_of("\r\n") != made.npos;
        return made;
    }

    bool hasLineBreak = false;
    Poco::Message message;
    std::string file;
    bool hasUsualTime = true;
};

bool isAscii(char byte)
{
    return static_cast<signed char>(byte) >= 0;
}

/// The width that POCO finds in a bracket, up to what is refused in any case.
int widthOf(const std::string& text)
{
    int width = 0;
    return Poco::NumberParser::tryParse(text, width) ? std::clamp(width, 0, tooWide) : 0;
}

/// Whether the pattern adds more to a line than it may, or shows more texts.
bool growsTooMuch(const std::string& pattern)
{
    std::size_t texts = 0;
    std::size_t bytes = 0;
    for (std::size_t at = 0; (at = pattern.find('%', at)) != pattern.npos && at + 1 < pattern.size();) {
        const char letter = pattern[at + 1];
        at += 2;
        texts += std::string("NOTU[pstv").find(letter) != std::string::npos;
        if (letter != '[' && (letter == '%' || at == pattern.size() || pattern[at] != '['))
            continue;
        const std::size_t begin = letter == '[' ? at : at + 1;
        const std::size_t end = std::min(pattern.find(']', begin), pattern.size());
        if (letter == 'v')
            bytes += std::size_t(widthOf(pattern.substr(begin, end - begin)));
        at = end;
    }
    return bytes >= std::size_t(tooWide) || texts > 32;
}

/// Whether POCO's line is right, and so expected.
bool isRightInPoco(const std::string& pattern, const std::string& names, const Record& record)
{
    if (!record.hasUsualTime)
        return false;
    const bool asciiNames = std::all_of(names.begin(), names.end(), isAscii);
    for (std::size_t at = 0; (at = pattern.find('%', at)) != pattern.npos; at += 2) {
        const char letter = at + 1 < pattern.size() ? pattern[at + 1] : '\0';
        if (letter == '%') // see checkOwn()
            return false;
        // Of a part of a second before the epoch it is one too many.
        if (letter == 'E' && record.message.getTime().epochMicroseconds() < 0)
            return false;
        if (letter == 'q' && !asciiNames) // half a character
            return false;
        // The day of the week is computed from a number too coarse for the end of a day.
        if ((letter == 'w' || letter == 'W') && record.message.getTime().epochMicroseconds() % second != 0)
            return false;
        if (letter == 'v' && at + 2 < pattern.size() && pattern[at + 2] == '[') {
            const std::size_t end = pattern.find(']', at);
            int width = 0;
            const std::string text = pattern.substr(at + 3, end == pattern.npos ? end : end - at - 3);
            if (Poco::NumberParser::tryParse(text, width) && width < 0)
                return false;
        }
    }
    return true;
}

/// Whether it was accepted.
bool setProperty(PatternFormatter& formatter, const std::string& name, const std::string& value)
{
    try {
        formatter.setProperty(name, value);
        return true;
    } catch (const Poco::SyntaxException&) {
        return false;
    } catch (const Poco::InvalidArgumentException&) {
        return false;
    }
}

std::string format(PatternFormatter& formatter, const Poco::Message& message)
{
    std::string line = "kept ";
    formatter.format(message, line);
    return line;
}

QByteArray bytes(const std::string& text)
{
    return QByteArray::fromStdString(text);
}

void checkLikePoco(const std::string& line, PatternFormatter& stock, const Poco::Message& message)
{
    try {
        checkEqual(bytes(line), bytes(format(stock, message)), "The line is POCO's");
    } catch (const std::out_of_range&) {
        // The initial of an empty name, which is nothing and no reason to lose a record.
    }
}

/// The second of a time, also before the epoch.
std::int64_t secondOf(std::int64_t time)
{
    return time / second - (time % second < 0 ? 1 : 0);
}

/// What POCO gets wrong.
void checkOwn(const Poco::Message& message)
{
    Zyr::LineFormatter formatter;
    formatter.setProperty("pattern", "%%s %E%%");
    checkEqual(bytes(format(formatter, message)),
               "kept %s " + QByteArray::number(qint64(secondOf(message.getTime().epochMicroseconds()))) + '%',
               "A percent sign is one, and the epoch's seconds are those begun");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    ::setenv("TZ", "<+0545>-5:45", 1); // without summer time, of which POCO knows only today's
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t maxPatternSize = 400;
    FuzzedDataProvider input(data, size);
    const std::string wanted = input.ConsumeRandomLengthString(maxPatternSize);
    const std::string times = input.ConsumeBool() ? "local" : "UTC";
    Zyr::LineFormatter ours;
    PatternFormatter stock;
    check(setProperty(ours, "pattern", wanted) != growsTooMuch(wanted),
          "A pattern is refused where it makes lines too long", bytes(wanted));
    const std::string pattern = ours.getProperty("pattern");
    check(pattern == wanted || pattern.empty(), "A refused pattern changes nothing", bytes(pattern));
    stock.setProperty("pattern", pattern);
    for (PatternFormatter* const formatter : {static_cast<PatternFormatter*>(&ours), &stock})
        formatter->setProperty("times", times);
    std::string names;
    if (input.ConsumeBool()) {
        names = input.ConsumeRandomLengthString(maxPatternSize);
        const std::string before = ours.getProperty("priorityNames");
        const bool taken = setProperty(ours, "priorityNames", names);
        check(taken == setProperty(stock, "priorityNames", names), "Names are refused where POCO refuses them",
              bytes(names));
        check(ours.getProperty("priorityNames") == (taken ? names : before), "What is refused changes nothing",
              bytes(names));
    }
    check(ours.getProperty("pattern") == pattern && ours.getProperty("times") == times, "Values are kept",
          bytes(pattern));

    const bool hasLineBreak = (pattern + names).find_first_of("\r\n") != pattern.npos;
    // Several, since what a second shows is kept for its other records.
    for (int count = input.ConsumeIntegralInRange(1, 3); count > 0; --count) {
        Record record(input);
        const std::string line = format(ours, record.message);
        check(line.starts_with("kept "), "The line is appended", bytes(line));
        if (!hasLineBreak && !record.hasLineBreak)
            check(line.find_first_of("\r\n") == line.npos, "No line break that nobody asked for", bytes(line));
        if (isRightInPoco(pattern, names, record))
            checkLikePoco(line, stock, record.message);
        checkOwn(record.message);
        // A record of the same second.
        const std::int64_t time = record.message.getTime().epochMicroseconds();
        record.message.setTime(std::max(secondOf(time), INT64_MIN / second) * second);
        Zyr::LineFormatter fresh;
        fresh.setProperty("pattern", pattern);
        fresh.setProperty("times", times);
        setProperty(fresh, "priorityNames", names);
        checkEqual(bytes(format(ours, record.message)), bytes(format(fresh, record.message)),
                   "A formatter's past does not show");
    }
    return 0;
}
