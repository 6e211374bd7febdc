#include "chain/rotation/IntervalStart.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <string_view>

namespace Zyr {

namespace {

using std::chrono::seconds;
using Clock = std::chrono::system_clock;

/// "-9223372036854775808" and a line end fit, and one more that shows that a file is too long.
constexpr std::size_t longestContent = 22;

std::string besides(const std::string& logPath)
{
    const auto name = logPath.rfind('/') + 1; // from 0 on without a directory
    return logPath.substr(0, name) + '.' + logPath.substr(name) + ".since";
}

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

std::optional<IntervalStart::Time> IntervalStart::read(const std::string& logPath) const
{
    const std::string path = besides(logPath);
    // Not blocking, so that a FIFO under that name does not stop the caller.
    const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
    const int file = watch([&] { return ::open(path.c_str(), flags); });
    if (file < 0)
        return {};
    char content[longestContent];
    const ssize_t size = watch([&] { return ::read(file, content, sizeof content); });
    watch([&] { return ::close(file); });
    const auto start = size > 0 ? parse({content, static_cast<std::size_t>(size)}) : std::nullopt;
    return start > Clock::now() ? std::nullopt : start;
}

bool IntervalStart::write(const std::string& logPath, Time start) const
{
    const auto second = std::chrono::floor<seconds>(start.time_since_epoch()).count();
    const std::string path = besides(logPath), temporary = path + ".new", content = std::to_string(second) + '\n';
    // What a crash left behind goes, and a link that somebody put there is not followed.
    watch([&] { return ::unlink(temporary.c_str()); });
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    const int file = watch([&] { return ::open(temporary.c_str(), flags, 0644); });
    if (file < 0)
        return false;
    // Not synchronised, which would wear out storage: what a power cut leaves damaged counts as absent.
    const ssize_t written = watch([&] { return ::write(file, content.data(), content.size()); });
    const bool isClosed = watch([&] { return ::close(file); }) == 0;
    if (isClosed && written == static_cast<ssize_t>(content.size()) &&
        watch([&] { return ::rename(temporary.c_str(), path.c_str()); }) == 0)
        return true;
    watch([&] { return ::unlink(temporary.c_str()); });
    return false;
}

void IntervalStart::remove(const std::string& logPath) const
{
    const std::string path = besides(logPath);
    watch([&] { return ::unlink(path.c_str()); });
}

std::optional<IntervalStart::Time> IntervalStart::birthOf(const std::string& logPath) const
{
    struct statx status = {};
    const unsigned wanted = STATX_BTIME | STATX_MTIME;
    if (watch([&] { return ::statx(AT_FDCWD, logPath.c_str(), 0, wanted, &status); }) != 0)
        return {};
    return timeOf(status.stx_mask & STATX_BTIME ? status.stx_btime.tv_sec : status.stx_mtime.tv_sec);
}

} // namespace Zyr
