#pragma once

#include "system/CallWatch.h"
#include "system/ForkClosedFile.h"

#include <cstdint>
#include <string>
#include <system_error>

#include <sys/stat.h>

namespace Zyr {

class TrustedPath;

/// A directory held open, and the system calls on the names in it, under the watch. No name is followed where it is a
/// link, so nobody leads the caller to files elsewhere by putting a link, or another directory, in the way meanwhile.
///
/// What returns bool leaves the reason in errno.
class Directory
{
public:
    /// Whether a file that is there already stops the making of one, or gives way to it.
    enum class Existing { Fail, Remove };

    /// The directory in which the path ends.
    bool hold(const TrustedPath& path, CallWatch& watch);
    bool isSame(const Directory& other) const noexcept;

    /// Neither blocks nor makes a terminal this process's own.
    bool open(const std::string& file, int flags, ForkClosedFile& opened, CallWatch& watch) const;
    /// Makes a file, to be read and appended to, with no other rights than `mode`.
    bool create(const std::string& file, Existing existing, ForkClosedFile& opened, CallWatch& watch,
                mode_t mode = S_IRUSR | S_IWUSR) const;

    bool status(const std::string& file, struct stat& found, CallWatch& watch) const noexcept;
    /// When the file was made, in seconds since the epoch, or last written where the file system does not keep that.
    bool birth(const std::string& file, std::int64_t& seconds, CallWatch& watch) const noexcept;

    bool remove(const std::string& file, CallWatch& watch) const noexcept;
    /// Onto a file of that name, too.
    bool rename(const std::string& from, const std::string& to, CallWatch& watch) const noexcept;
    /// Never onto a file that is there: std::errc::file_exists. A file system that cannot tell within the call is asked
    /// before.
    std::error_code renameToFree(const std::string& from, const std::string& to, CallWatch& watch) const noexcept;
    /// Gives `file` the name `kept`, which no file must have, and puts `successor` in its place; or leaves all as it
    /// was. The two steps: `file` and `successor` change places, then the former gets its new name. Where the file
    /// system cannot exchange: `file` gets its new name, then `successor` the old one.
    std::error_code replace(const std::string& file, const std::string& successor, const std::string& kept,
                            CallWatch& watch) const noexcept;

    /// The names are on the disk afterwards, where the file system can tell that of a directory.
    std::error_code synchronize(CallWatch& watch) const noexcept;

    /// A descriptor to list the directory with, which the caller closes; -1.
    int openToList(CallWatch& watch) const noexcept;

private:
    bool renameAs(const std::string& from, const std::string& to, unsigned flags, CallWatch& watch) const noexcept;

    ForkClosedFile directory; ///< opened with O_PATH
    struct stat identity = {};
};

} // namespace Zyr
