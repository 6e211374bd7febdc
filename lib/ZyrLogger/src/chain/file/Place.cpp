#include "chain/file/Place.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

namespace {

constexpr int longestLinkChain = 40;

std::string realDirectory(const std::string& path, CallWatch& watch)
{
    const std::string directory = directoryOf(path);
    const std::unique_ptr<char, decltype(&std::free)> real(
        watch([&] { return ::realpath(directory.c_str(), nullptr); }), &std::free);
    return real ? real.get() : std::string();
}

} // namespace

std::string realPlace(const std::string& path, CallWatch& watch)
{
    std::string place = path;
    for (int links = 0; links < longestLinkChain; ++links) {
        const std::string directory = realDirectory(place, watch);
        if (directory.empty() || std::string_view(directory).starts_with("/proc/"))
            return {};
        place = (directory == "/" ? "" : directory) + '/' + place.substr(place.rfind('/') + 1);
        char target[PATH_MAX];
        const ssize_t length = watch([&] { return ::readlink(place.c_str(), target, sizeof target); });
        if (length <= 0)
            return place;
        const std::string next(target, std::size_t(length));
        place = next.front() == '/' ? next : directory + '/' + next;
    }
    return {};
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::error_code synchronizeDirectory(const std::string& path, CallWatch& watch)
{
    using namespace std::chrono_literals;
    const std::string name = directoryOf(path);
    const int directory = watch([&] { return ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    // Not every file system has that for directories.
    if (directory >= 0 && (watch([&] { return ::fsync(directory); }, 10s) == 0 || errno == EINVAL)) {
        watch([&] { return ::close(directory); });
        return {};
    }
    const std::error_code error(errno, std::system_category());
    if (directory >= 0)
        watch([&] { return ::close(directory); });
    return error;
}

std::string besideLog(const std::string& logPath, const char* suffix)
{
    const std::size_t name = logPath.rfind('/') + 1; // 0 without a directory
    return logPath.substr(0, name) + '.' + logPath.substr(name) + suffix;
}

} // namespace Zyr
