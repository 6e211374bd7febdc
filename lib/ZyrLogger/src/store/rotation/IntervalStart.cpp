// The hidden file that keeps when the present log file's interval began.
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

/// "-9223372036854775808" and a line end fit, and one more that shows that a file is too long.
constexpr std::size_t maxContent = 22;
constexpr auto ending = ".since";

/// A file system may hold times that the clock's type does not.
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
    // A line end tells that nothing is missing.
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
    // For whoever rotates next to read, perhaps another user; what a crash left behind goes.
    if (!log.create(temporary, Directory::Existing::Remove, file, watch, 0644))
        return false;
    // Not synchronised, which would wear out storage: what a power cut leaves damaged counts as absent.
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

std::optional<IntervalStart::Time> IntervalStart::birthOf(const LogPlace& log) const
{
    std::int64_t made = 0;
    return log.birth(log.name(), made, watch) ? timeOf(made) : std::nullopt;
}

} // namespace Zyr
