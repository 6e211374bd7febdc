#pragma once

#include "system/CallWatch.h"

#include <system_error>

#include <dirent.h>

namespace Zyr {

class Directory;

/// One pass over a directory's entries, under the watch.
class DirectoryEntries
{
public:
    DirectoryEntries(const Directory& directory, CallWatch& itsWatch) noexcept;
    ~DirectoryEntries();
    DirectoryEntries(const DirectoryEntries&) = delete;
    DirectoryEntries& operator=(const DirectoryEntries&) = delete;

    /// False at the end, and where the directory cannot be read, which error() tells.
    bool next() noexcept;
    std::error_code error() const noexcept { return failure; }

    // Of the current entry:
    const char* name() const noexcept { return entry->d_name; }
    /// Costs a system call only where the directory does not hold the files' types.
    bool isRegular() const noexcept;

private:
    CallWatch& watch;
    DIR* stream = nullptr;
    const dirent* entry = nullptr;
    std::error_code failure;
};

} // namespace Zyr
