#pragma once

#include "system/CallWatch.h"

#include <system_error>

#include <dirent.h>

namespace Zyr {

class Directory;

/// One pass over what is in a directory, under the watch.
class DirectoryEntries
{
public:
    DirectoryEntries(const Directory& directory, CallWatch& itsWatch) noexcept;
    ~DirectoryEntries();
    DirectoryEntries(const DirectoryEntries&) = delete;
    DirectoryEntries& operator=(const DirectoryEntries&) = delete;

    /// False at the end, or where the directory cannot be read: error().
    bool next() noexcept;
    std::error_code error() const noexcept { return failure; }

    // Of the entry that next() went to.
    const char* name() const noexcept { return entry->d_name; }
    /// Asks the file system about the file only where it does not tell its kind in the directory.
    bool isRegular() const noexcept;

private:
    CallWatch& watch;
    DIR* stream = nullptr;
    const dirent* entry = nullptr;
    std::error_code failure;
};

} // namespace Zyr
