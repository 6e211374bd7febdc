#pragma once

#include "settings/FileSettings.h"
#include "store/AppendFile.h"
#include "store/archive/Archives.h"
#include "store/rotation/RotationTimer.h"
#include "system/CallWatch.h"

#include <memory>
#include <string>
#include <system_error>

namespace Zyr {

/// The log file and its archives, as the worker thread keeps them.
///
/// Several writers may have one file open: other loggers of that name, other instances of the application. The first
/// one holds a lock on it and alone rotates, purges, compresses and cuts back; the others append whole lines, follow
/// its rotations, and one of them takes over when the lock is free.
class LogFile
{
public:
    explicit LogFile(CallWatch& itsWatch);

    // The calls that throw are those that need memory; each may be repeated then.

    /// Another path takes effect with the next write.
    void configure(FileSettings wanted);

    /// Goes on with a file that was opened elsewhere, under the path of the settings. What is not open any more was
    /// adopted by a call that threw.
    void adopt(AppendFile&& opened, bool beginAnew);

    /// Whether a pipe has taken a line in part only. The same batch, or one that begins with that line, goes on.
    bool isInLine() const noexcept { return partial > 0; }
    void close() noexcept;

    /// Makes the next write look first whether the file is still the one under its path.
    void lookAgain() noexcept { looked = {}; }

    struct Written
    {
        std::size_t lines = 0;
        std::error_code error; ///< why it was not all
    };

    /// Appends lines, rotating before where it is time to, and as many of them as go into the present file. Where it
    /// fails, nothing of the rest is in the file.
    Written write(const LineBatch& batch);

    /// Whether archives wait for compression, whether so many that it goes before the next lines, and a slice of it.
    bool canCompress() const;
    bool mustCompressFirst() const { return canCompress() && archives.mustCompressFirst(); }
    void compressSlice();

private:
    using Steady = CallWatch::Clock;
    using Time = RotationTimer::Time;

    std::error_code makeReady(Time now);
    std::error_code openPath(Time now);
    std::error_code findAgain();
    void reportLink();
    void reportOther();
    void takeUp(AppendFile&& fresh, Time now);
    void becomeFirstWriter(Time now);
    void keepArchives(Time now);
    bool hasArchives() const noexcept { return file.isOpen() && firstWriter && place; }
    void startTimer(Time now, Time written);
    void restartTimer(Time now);
    std::error_code joinFirstWriter(Time now);

    bool isRotationDue(Time now);
    std::error_code rotateIfStillDue(Time now);
    std::error_code rotate(Time now);

    // They do not throw, since what was written and not accounted for would be written again.
    Written append(const LineBatch& batch, std::size_t lines) noexcept;
    std::error_code synchronize() noexcept;

    CallWatch& watch;
    FileSettings settings;
    Archives archives;
    RotationTimer timer;

    AppendFile file;
    std::string openedPath;
    std::shared_ptr<const LogPlace> place; ///< null when the file is not to be moved from where it lies
    std::uint64_t size = 0;
    std::size_t partial = 0; ///< bytes of the next line that a pipe took already
    bool firstWriter = false;
    bool archivesKept = false; ///< as the settings say
    bool reportedOther = false;
    bool reportedLink = false;
    bool endLineFirst = false;
    bool directoryChanged = false;
    bool rotationWanted = false;
    bool rotationFailed = false;
    Steady::time_point nextRotation; ///< not before that
    Steady::time_point looked;
};

} // namespace Zyr
