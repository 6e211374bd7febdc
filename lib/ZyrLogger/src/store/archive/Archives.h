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

/// The archives of one log file: room for the next one, the purging of old ones, and their compression.
///
/// Only regular files with the exact names of archives are ever removed or replaced. The directory is read when room
/// is made; in between, the list of that time is kept up.
class Archives
{
public:
    using Time = std::chrono::system_clock::time_point;

    explicit Archives(CallWatch& itsWatch);

    /// Compression of another log's archive, or of one when that is switched off, is abandoned.
    void configure(std::shared_ptr<const LogPlace> itsLog, const FileSettings& wanted);

    /// Gives the name that the log is to be renamed to, where no file is. May be repeated: room that was made stays.
    std::error_code makeRoom(Time now, std::string& archiveName);

    /// The log has been renamed to what makeRoom() gave.
    void added(const std::string& archiveName, Time now);

    /// Removes what is too old or too many, as far as it can be removed now; never the archive added last.
    void purge(Time now);

    /// What a process that was killed left over, of all steps of a rotation and of compression; then purges. After
    /// an error the log's hidden ".next" may still be there, with lines in it.
    std::error_code cleanUp(Time now);

    /// More than two archives added here wait for compression, and nothing has failed since the last one was added.
    bool mustCompressFirst() const noexcept;

    /// Whether there is something to compress that has not failed only just now.
    bool canCompress(Time now) const noexcept;

    /// At most 64 KiB of input.
    void compressSlice(Time now) noexcept;

    /// Lets the log go, until configure().
    void leave() noexcept;
    bool isOf(const std::shared_ptr<const LogPlace>& place) const noexcept { return log && log == place; }

private:
    static constexpr auto temporaryEnding = ".gz-part";

    struct Archive : FoundArchive
    {
        unsigned made = 0;        ///< counts what was added here; 0: found
        bool compressing = false; ///< of at most one
        bool postponed = false;   ///< could not be compressed, so others go first
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
    List list;                   ///< newest first, the kind in use before the other one
    unsigned made = 0;           ///< archives added so far
    std::int64_t nextExpiry = 0; ///< second in which the first of the numbered ones there gets too old

    ArchiveCompressor compressor;
    std::size_t waiting = 0; ///< of those added here
    bool leftOvers = false;  ///< others wait, too
    std::chrono::seconds backoff{0};
    std::optional<Time> failed;    ///< when compression failed; nothing once it is to be tried again
    std::chrono::seconds pause{0}; ///< how long not to try after that
};

} // namespace Zyr
