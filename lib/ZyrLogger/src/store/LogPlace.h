#pragma once

#include "system/CallWatch.h"
#include "system/TrackedFile.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>

#include <dirent.h>
#include <sys/stat.h>

namespace Zyr {

class TrustedPath;

/// The value of errno.
inline std::error_code lastError() noexcept
{
    return {errno, std::system_category()};
}

/// Gives a file the owner, group and mode of another one, as far as that is permitted: who could not read that one must
/// not be able to read this one, so without its group it gets no rights for a group.
void copyAccess(const struct stat& from, int to, CallWatch& watch);

/// Where a log file lies: its directory, held open, and its name there. The log and what lies beside it are reached
/// through that directory, by names without links, so that nobody leads the writer to files elsewhere by putting
/// another directory or a link in the way meanwhile.
///
/// The calls are those of the same name of the system, with names in the directory; false and errno where they fail.
class LogPlace
{
public:
    /// Null where the directory cannot be held open; errno tells why.
    static std::shared_ptr<const LogPlace> of(const TrustedPath& path, CallWatch& watch);

    const std::string& name() const noexcept { return logName; }
    /// The hidden file beside the log: ".app.log.next" for "app.log" and ".next".
    std::string hidden(const char* suffix) const { return '.' + logName + suffix; }
    bool isSame(const LogPlace& other) const noexcept;

    bool open(const std::string& file, int flags, TrackedFile& opened, CallWatch& watch, mode_t mode = 0666) const;
    bool status(const std::string& file, struct stat& found, CallWatch& watch) const;
    /// When the file was made, in seconds since the epoch, or last written where the file system does not keep that.
    bool birth(const std::string& file, std::int64_t& seconds, CallWatch& watch) const;
    bool remove(const std::string& file, CallWatch& watch) const;
    bool rename(const std::string& from, const std::string& to, CallWatch& watch) const
    {
        return renameAs(from, to, 0, watch);
    }
    bool exchange(const std::string& one, const std::string& other, CallWatch& watch) const
    {
        return renameAs(one, other, RENAME_EXCHANGE, watch);
    }

    /// Renames, but never onto a file that is there: std::errc::file_exists.
    std::error_code renameToFree(const std::string& from, const std::string& to, CallWatch& watch) const;

    /// Puts the names on the disk.
    std::error_code synchronize(CallWatch& watch) const noexcept;

    /// To read the directory, to be closed with closedir(). Null and errno where that fails.
    DIR* read(CallWatch& watch) const;

private:
    LogPlace() = default;
    bool renameAs(const std::string& from, const std::string& to, unsigned flags, CallWatch& watch) const;
    int openForReading(CallWatch& watch) const noexcept;

    TrackedFile directory; ///< opened with O_PATH
    struct stat identity = {};
    std::string logName;
};

} // namespace Zyr
