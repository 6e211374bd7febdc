// The hidden file that holds the start of the current log file's interval.

#include "store/rotation/IntervalStart.h"

#include "system/FileCalls.h"

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include <fcntl.h>

namespace Zyr {

namespace {

using std::chrono::seconds;
using Clock = std::chrono::system_clock;

/// "-9223372036854775808", a line end, and one more byte that shows that a file is too long.
constexpr std::size_t maxContent = 22;
constexpr auto ending = ".since";

/// Nothing for times that the clock's type cannot represent, which a file system may hold.
std::optional<IntervalStart::Time> timeOf(std::int64_t secondsSinceEpoch)
{
    const seconds time(secondsSinceEpoch);
    if (time < seconds(0) || time > std::chrono::floor<seconds>(IntervalStart::Time::max().time_since_epoch()))
        return {};
    return IntervalStart::Time(time);
}

std::optional<IntervalStart::Time> parse(std::string_view content)
{
    std::int64_t number = 0;
    const char* const end = content.data() + content.size();
    const auto [rest, error] = std::from_chars(content.data(), end, number);
    // Without its line end, the content is incomplete.
    if (error != std::errc{} || std::string_view(rest, static_cast<std::size_t>(end - rest)) != "\n")
        return {};
    return timeOf(number);
}

} // namespace

std::optional<IntervalStart::Time> IntervalStart::read(const LogPlace& log) const
{
    ForkClosedFile file;
    if (!log.open(log.hidden(ending), O_RDONLY, file, watch))
        return {};
    char content[maxContent];
    const ssize_t size = FileCalls::read(file.get(), content, sizeof content, watch);
    file.close(watch);
    const auto start = size > 0 ? parse({content, static_cast<std::size_t>(size)}) : std::nullopt;
    return start > Clock::now() ? std::nullopt : start;
}

bool IntervalStart::write(const LogPlace& log, Time start) const
{
    const auto second = std::chrono::floor<seconds>(start.time_since_epoch()).count();
    const std::string name = log.hidden(ending), temporary = name + ".new", content = std::to_string(second) + '\n';
    ForkClosedFile file;
    // Readable for all: the next process to rotate may be another user's. Replaces what a crash left behind.
    if (!log.create(temporary, Directory::Existing::Remove, file, watch, 0644))
        return false;
    // Not synchronized, to save flash: a file damaged by a power cut counts as missing.
    const ssize_t written = FileCalls::write(file.get(), content.data(), content.size(), watch);
    file.close(watch);
    if (written == static_cast<ssize_t>(content.size()) && log.rename(temporary, name, watch))
        return true;
    log.remove(temporary, watch);
    return false;
}

void IntervalStart::remove(const LogPlace& log) const
{
    log.remove(log.hidden(ending), watch);
}

std::optional<IntervalStart::Time> IntervalStart::birthTimeOf(const LogPlace& log) const
{
    std::int64_t seconds = 0;
    return log.birthTime(log.name(), seconds, watch) ? timeOf(seconds) : std::nullopt;
}

} // namespace Zyr
