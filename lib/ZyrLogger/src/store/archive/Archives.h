#pragma once

#include "settings/FileSettings.h"
#include "store/archive/ArchiveCompressor.h"
#include "store/archive/ArchiveFolder.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace Zyr {

/// The archives of one log file: makes room for the next one, purges old ones and compresses.
///
/// Removes and replaces only regular files with exact names of archives. Reads the directory when it makes room; in
/// between, it keeps that list up to date.
class Archives
{
public:
    using Time = std::chrono::system_clock::time_point;

    explicit Archives(CallWatch& itsWatch);

    /// Abandons a compression under way if the log is another one or compression is switched off.
    void configure(std::shared_ptr<const LogPlace> itsLog, const FileSettings& wanted);

    /// Returns a free name for the log to be renamed to. May be repeated: room that was made stays.
    std::error_code makeRoom(Time now, std::string& archiveName);

    /// The log has been renamed to the name from makeRoom().
    void added(const std::string& archiveName, Time now);

    /// Removes archives that are too old or too many, as far as possible now; never the one added last.
    void purge(Time now);

    /// Recovers from a kill in any step of a rotation or a compression, then purges. After an error the log's hidden
    /// ".next" may still exist, with lines in it.
    std::error_code cleanUp(Time now);

    /// More than two archives added here wait for compression, and nothing has failed since the last one was added.
    bool mustCompressFirst() const noexcept;

    /// Whether there is something to compress, and no pause after a failure.
    bool canCompress(Time now) const noexcept;

    /// At most 64 KiB of input.
    void compressSlice(Time now) noexcept;

    /// Releases the log, until configure().
    void leave() noexcept;
    bool isOf(const std::shared_ptr<const LogPlace>& place) const noexcept { return log && log == place; }

private:
    static constexpr auto temporaryEnding = ".gz-part";

    struct Archive : FoundArchive
    {
        unsigned made = 0;        ///< serial number of archives added here; 0: found by a scan
        bool compressing = false; ///< true for one at most
        bool postponed = false;   ///< could not be compressed: others go first
    };
    using List = std::vector<Archive>;

    std::error_code scan();
    void listChanged();
    bool goesBefore(const Archive& one, const Archive& other) const noexcept;
    std::string nameOf(const Archive& archive) const { return log->name() + archive.name.suffix(); }

    std::error_code shift();
    std::uint64_t freeStamp(Time now) const noexcept;

    void removePlainTwins();
    std::error_code rescueLog(Time now);

    struct AgeLimit;
    bool isTooOld(const Archive& archive, const AgeLimit& limit);
    bool remove(const Archive& archive);

    void compressNext(Time now);
    bool waits(const Archive& archive) const noexcept;
    Archive* nextToCompress();
    void abandonCompression() noexcept;
    void putOff(Time now, std::chrono::seconds wait) noexcept;

    CallWatch& watch;
    std::shared_ptr<const LogPlace> log;
    FileSettings settings;

    bool scanned = false;
    List list;                   ///< as goesBefore() orders it
    unsigned made = 0;           ///< archives added so far
    std::int64_t nextExpiry = 0; ///< second in which the first of the numbered ones becomes too old

    ArchiveCompressor compressor;
    std::size_t waiting = 0; ///< archives added here that wait for compression
    bool leftOvers = false;  ///< archives found by a scan wait, too
    std::chrono::seconds backoff{0};
    std::optional<Time> failed;    ///< when compression last failed; nothing once it may be retried
    std::chrono::seconds pause{0}; ///< how long to wait after that
};

} // namespace Zyr
