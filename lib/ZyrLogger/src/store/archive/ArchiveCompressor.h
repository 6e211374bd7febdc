#pragma once

#include "store/LogPlace.h"

#include <memory>
#include <string>

namespace Zyr {

/// Compresses one archive at a time, a slice per call, to a temporary file that finally replaces the archive. Holds
/// memory and descriptors only between start() and the end of the work.
class ArchiveCompressor
{
public:
    enum class Result {
        Working, ///< there is more to do
        Done,    ///< ".gz" is in place; the plain file is removed if possible
        Gone,    ///< the archive is no longer under its name
        Busy,    ///< another writer is appending to it
        Failed   ///< the archive is left as it was
    };

    explicit ArchiveCompressor(CallWatch& itsWatch);
    ~ArchiveCompressor();

    bool isWorking() const noexcept { return work != nullptr; }

    /// `archive` and `temporary` are names in the log's directory; a file `temporary` is replaced.
    Result start(std::shared_ptr<const LogPlace> log, const std::string& archive, const std::string& temporary);

    /// At most 64 KiB of input. `archive`: its current name, since rotations rename archives.
    Result compressSlice(const std::string& archive);

    /// Removes the temporary file. Every result but Working has done so already.
    void abandon() noexcept;

private:
    struct Work;

    Result begin(const std::string& archive);
    bool isBeingWritten();
    Result readSlice(const std::string& archive);
    Result finish(const std::string& archive);

    CallWatch& watch;
    std::unique_ptr<Work> work;
};

/// Whether a gzipped file seems to hold all of the plain one: its trailer has the same size.
bool holdsAllOf(const LogPlace& log, const std::string& gzipped, const std::string& plain, CallWatch& watch);

} // namespace Zyr
