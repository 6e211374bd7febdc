#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Zyr {

inline constexpr std::string_view gzipEnding = ".gz";

/// The varying part of an archive's name: "app.log.3", "app.log.20260131235959999", both also with ".gz".
struct ArchiveName
{
    std::uint64_t stamp = 0;   ///< YYYYMMDDHHMMSSmmm read as a number; 0 without one
    std::int32_t number = -1;  ///< -1 without one; behind a stamp it distinguishes archives of one millisecond
    bool wholeSeconds = false; ///< the name has only the first 14 digits of the stamp
    bool gzipped = false;

    /// Nothing when the name is not that of an archive of the log.
    static std::optional<ArchiveName> parse(std::string_view logName, std::string_view fileName);

    /// Everything behind the log's name or path.
    std::string suffix() const;

    bool isTimestamped() const noexcept { return stamp != 0; }

    /// The same archive, gzipped or plain.
    ArchiveName as(bool asGzipped) const noexcept;

    bool operator==(const ArchiveName&) const noexcept = default;

    /// For two archives of one kind, numbered or timestamped. With equal stamps, a higher number is older: archives of
    /// the same millisecond were counted up by each new one.
    bool isNewerThan(const ArchiveName& other) const noexcept;
};

namespace ArchiveStamp {

using Time = std::chrono::system_clock::time_point;

/// ArchiveName::stamp of a time, in local time or UTC.
std::uint64_t of(Time time, bool local) noexcept;

/// The stamp one millisecond later.
std::uint64_t after(std::uint64_t stamp) noexcept;

} // namespace ArchiveStamp

} // namespace Zyr
