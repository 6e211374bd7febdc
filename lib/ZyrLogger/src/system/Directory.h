#pragma once

#include "system/CallWatch.h"
#include "system/ForkClosedFile.h"

#include <cstdint>
#include <string>
#include <system_error>

#include <sys/stat.h>

namespace Zyr {

class TrustedPath;

/// A directory held open, and the system calls on the names in it, under the watch. Links are not followed: nobody can
/// redirect a call to a file elsewhere by replacing a name or a directory on the path meanwhile.
///
/// Functions that return bool leave the reason of a failure in errno.
class Directory
{
public:
    /// What create() does about a file of that name: fail, or remove it.
    enum class Existing { Fail, Remove };

    /// Opens the directory that the path's last name is in.
    bool hold(const TrustedPath& path, CallWatch& watch);
    bool isSame(const Directory& other) const noexcept;

    /// Without blocking, and without making a terminal the controlling one.
    bool open(const std::string& file, int flags, ForkClosedFile& opened, CallWatch& watch) const;
    /// Creates a file for reading and appending, with the rights of `mode` that the umask leaves.
    bool create(const std::string& file, Existing existing, ForkClosedFile& opened, CallWatch& watch,
                mode_t mode = S_IRUSR | S_IWUSR) const;

    bool status(const std::string& file, struct stat& found, CallWatch& watch) const noexcept;
    /// Birth time in seconds since the epoch, or the time of the last write where the file system keeps none.
    bool birthTime(const std::string& file, std::int64_t& seconds, CallWatch& watch) const noexcept;

    bool remove(const std::string& file, CallWatch& watch) const noexcept;
    /// Replaces a file named `to`.
    bool rename(const std::string& from, const std::string& to, CallWatch& watch) const noexcept;
    /// Never replaces a file: std::errc::file_exists. Where the file system cannot check that atomically, it is checked
    /// before.
    std::error_code renameToFree(const std::string& from, const std::string& to, CallWatch& watch) const noexcept;
    /// Renames `file` to `kept`, which must not exist, and `successor` to `file`; on failure both are as before. First
    /// the two are exchanged, then the old one is renamed. Where the file system cannot exchange: `file` is renamed,
    /// then `successor`.
    std::error_code replace(const std::string& file, const std::string& successor, const std::string& kept,
                            CallWatch& watch) const noexcept;

    /// fsync() of the directory: the names are on the disk afterwards, where the file system supports that.
    std::error_code synchronize(CallWatch& watch) const noexcept;

    /// A descriptor to list the directory with, which the caller closes; -1 on failure.
    int openToList(CallWatch& watch) const noexcept;

private:
    bool renameAs(const std::string& from, const std::string& to, unsigned flags, CallWatch& watch) const noexcept;

    ForkClosedFile directory; ///< opened with O_PATH
    struct stat identity = {};
};

} // namespace Zyr
