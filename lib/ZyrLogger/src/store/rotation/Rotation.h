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

/// When and how the active log file gives way to a new one: by size, after an interval, at a time of day, or as it was
/// asked for. Archives are looked after along with it.
///
/// The steps of a rotation, for "app.log", and what a kill after each of them leaves:
///
/// 1. ".app.log.next" is made: empty, locked, with the log's owner and rights. Left: that file, removed by rescueLog.
/// 2. Room is made: the numbers of the archives are counted up, the last one first. Left: a hole in the numbers, which
///    the next rotation fills.
/// 3. Log and ".next" change places. Left: the old log under the name ".next", which rescueLog makes an archive.
/// 4. ".next" gets the archive's name. Left: nothing to repair but what follows.
/// 5. ".app.log.since" is replaced, for intervals. Left: the former start, so the new file may be rotated too soon; and
///    perhaps ".since.new", which the next writing of it removes.
/// 6. What is too old or too many is purged. Left: too many, purged at the next start.
///
/// Without an exchange in the file system, the log gets the archive's name and then ".next" the log's. In between there
/// is no log: whoever opens it next makes one, and rescueLog removes the empty ".next".
///
/// Compression comes later, as work in the background: to ".app.log.gz-part", which cleanUp removes; then that gets the
/// name ".gz" and the plain file goes, which removePlainTwins does when a kill came in between.
///
/// rescueLog, removePlainTwins and the purge are parts of Archives::cleanUp, which runs when a writer becomes the first
/// one or gets other settings, and when step 1 finds a ".next".
class Rotation
{
public:
    using Time = RotationTimer::Time;

    Rotation(const FileSettings& ofTheLog, CallWatch& itsWatch);

    // The calls that throw are those that need memory; each may be repeated then.

    /// Looks after rotation and archives of that file, if that is this writer's business. To be called whenever the
    /// file may be another one, or another writer's business.
    void follow(const ActiveFile& active, Time now);
    /// The settings are others: follow() begins anew.
    void settingsChanged() noexcept { ready = false; }
    /// Lets the log go, until follow().
    void leave() noexcept;

    /// Has the next write begin a new file, whatever the rule says, or takes that back. Nothing is put off any more
    /// that has failed before.
    void request(bool beginAnew) noexcept;

    /// Begins a new file where it is time to. Where that cannot be done, the old one goes on, and it is tried again
    /// soon. An error means that there is no file to go on with.
    std::error_code rotateIfDue(ActiveFile& active, Time now);

    /// How many lines of the batch go into the present file.
    std::size_t linesFitting(const ActiveFile& active, const LineBatch& batch) const noexcept;

    /// Whether archives wait for compression, whether so many that it goes before the next lines, and a slice of it.
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
    bool ready = false;    ///< archives and timer are as the settings say
    bool wanted = false;
    bool failed = false;
    Steady::time_point nextTry;
};

} // namespace Zyr
