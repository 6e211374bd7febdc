#pragma once

#include "queue/LineBatch.h"
#include "settings/FileSettings.h"
#include "store/ActiveFile.h"
#include "store/archive/Archives.h"
#include "store/rotation/RotationTimer.h"

#include <cstddef>
#include <string>
#include <system_error>

namespace Zyr {

/// Decides when the active log file is replaced by a new one (by size, interval, time of day or request), and does so.
/// Purges and compresses archives along with it.
///
/// The steps of a rotation of "app.log", and what a kill after each of them leaves:
///
/// 1. ".app.log.next" is created: empty, locked, with the log's owner and rights. Left: that file; rescueLog removes
/// it.
/// 2. The numbers of the archives are counted up, the last one first. Left: a gap in the numbers; the next rotation
///    fills it.
/// 3. Log and ".next" are exchanged. Left: the old log as ".next"; rescueLog makes it an archive.
/// 4. ".next" is renamed to the archive. Left: only steps 5 and 6 are missing.
/// 5. ".app.log.since" is replaced, for intervals. Left: the former start, so that the new file may be rotated too
///    soon, and maybe ".since.new"; the next write of it removes that.
/// 6. Old archives are purged. Left: too many archives, purged at the next start.
///
/// Where the file system cannot exchange, the log is renamed to the archive, then ".next" to the log. In between there
/// is no log: the next writer that opens it creates one, and rescueLog removes the empty ".next".
///
/// Compression follows in the background, to ".app.log.gz-part", which cleanUp removes. That is renamed to ".gz", and
/// the plain file is removed, by removePlainTwins if a kill came in between.
///
/// rescueLog, removePlainTwins and the purge are parts of Archives::cleanUp, which runs when a writer becomes the first
/// one or gets other settings, and when step 1 finds a ".next".
class Rotation
{
public:
    using Time = RotationTimer::Time;

    Rotation(const FileSettings& logSettings, CallWatch& itsWatch);

    // The functions that are not noexcept may throw std::bad_alloc, and can be repeated then.

    /// Begins or continues to manage that file and its archives if this writer rotates it. To be called whenever the
    /// file or its first writer may have changed.
    void follow(const ActiveFile& active, Time now);
    /// follow() begins anew.
    void settingsChanged() noexcept { ready = false; }
    /// Releases the log, until follow().
    void leave() noexcept;

    /// Makes the next write rotate, whatever the rule says, or cancels that. Ends the pause after a failure.
    void request(bool rotateFirst) noexcept;

    /// Rotates if that is due. After a failure the old file stays in use, and the next try follows soon. An error means
    /// that there is no file to write to.
    std::error_code rotateIfDue(ActiveFile& active, Time now);

    /// How many lines of the batch go into the current file.
    std::size_t linesFitting(const ActiveFile& active, const LineBatch& batch) const noexcept;

    /// Whether archives wait for compression, whether so many that they must precede the next lines, and one slice.
    bool canCompress(Time now) const noexcept { return ready && archives.canCompress(now); }
    bool mustCompressFirst() const noexcept { return archives.mustCompressFirst(); }
    void compressSlice(Time now) noexcept { archives.compressSlice(now); }

private:
    using Steady = CallWatch::Clock;

    void begin(const ActiveFile& active, Time now);
    void restartTimer(const ActiveFile& active, Time now);
    bool isDue(const ActiveFile& active, Time now);
    std::error_code rotate(ActiveFile& active, Time now);

    const FileSettings& settings;
    CallWatch& watch;
    Archives archives;
    RotationTimer timer;
    unsigned followed = 0; ///< generation of the active file
    bool ready = false;    ///< archives and timer are set up for the current settings
    bool wanted = false;
    bool failed = false;
    Steady::time_point nextTry;
};

} // namespace Zyr
