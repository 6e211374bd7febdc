#pragma once

#include "store/LogPlace.h"

#include <memory>
#include <string>

namespace Zyr {

/// Compresses one archive at a time, a slice at each call, to a temporary file that takes the archive's place in the
/// end. Holds memory and descriptors only between start() and the end of the work.
class ArchiveCompressor
{
public:
    enum class Result {
        Working, ///< there is more to do
        Done,    ///< ".gz" is there and the plain file, if it could be, removed
        Gone,    ///< the archive is no longer under its name
        Busy,    ///< somebody is just writing to it
        Failed   ///< it is left as it was
    };

    explicit ArchiveCompressor(CallWatch& itsWatch);
    ~ArchiveCompressor();

    bool isWorking() const noexcept { return work != nullptr; }

    /// `archive`: its name; `temporary`: that of a file beside it, overwritten.
    Result start(std::shared_ptr<const LogPlace> log, const std::string& archive, const std::string& temporary);

    /// At most 64 KiB of input. `archive`: its name now, since it may be renamed meanwhile.
    Result compressSlice(const std::string& archive);

    /// Removes the temporary file. After every result but Working this is done already.
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

/// Whether a gzipped file looks as if it held all of the plain one: its trailer gives the same size.
bool holdsAllOf(const LogPlace& log, const std::string& gzipped, const std::string& plain, CallWatch& watch);

} // namespace Zyr
