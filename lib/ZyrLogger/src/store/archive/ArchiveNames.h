#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Zyr {

/// What tells one archive of a log from another: "app.log.3", "app.log.20260131235959999", both also with ".gz".
struct ArchiveName
{
    std::uint64_t stamp = 0;   ///< YYYYMMDDHHMMSSmmm read as a number; 0 without one
    std::int32_t number = -1;  ///< -1 without one; behind a stamp it tells archives of one millisecond apart
    bool wholeSeconds = false; ///< the stamp is written in its first 14 digits
    bool gzipped = false;

    /// Nothing when the file is not an archive of the log, as far as its name tells.
    static std::optional<ArchiveName> parse(std::string_view logName, std::string_view fileName);

    /// What is put behind the log's name or path.
    std::string suffix() const;

    bool isTimestamped() const noexcept { return stamp != 0; }

    /// The same archive in the form of `asGzipped`.
    ArchiveName as(bool asGzipped) const noexcept;

    bool operator==(const ArchiveName&) const noexcept = default;

    /// Whether it is the newer one of two of a kind. An archive that had to give way to one of the same millisecond got
    /// a number, which was counted up each time.
    bool isNewerThan(const ArchiveName& other) const noexcept;
};

namespace ArchiveStamp {

using Time = std::chrono::system_clock::time_point;

/// As ArchiveName has it, in local time or UTC.
std::uint64_t of(Time time, bool local) noexcept;

/// The stamp of a millisecond later.
std::uint64_t after(std::uint64_t stamp) noexcept;

} // namespace ArchiveStamp

} // namespace Zyr
