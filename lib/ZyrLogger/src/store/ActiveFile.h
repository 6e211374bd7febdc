#pragma once

#include "settings/FileSettings.h"
#include "store/LineAppender.h"
#include "system/CallWatch.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace Zyr {

/// The file that the log's path leads to now, and this writer's part in it.
///
/// Several writers may have one file open: other loggers of that name, other instances of the application.
///
/// - First writer is who has the file's flock() lock, for as long as the file is open. It alone rotates, purges,
///   compresses and cuts back. A forked child closes its copy of the file, so the lock ends with its owner.
/// - The others append whole lines. Around each append they share a lock on the contents (holdOffCompression), and look
///   under it whether the path still leads to this file. The compressor takes that lock exclusively once: then no
///   append is under way, and whoever comes later finds that the file is not the log any more. An archive that is being
///   compressed is never written again.
/// - They follow a rotation as the path leads to another file then. The first writer locks the new file before it has
///   the log's name, so it stays the first one. It looks once a second itself whether somebody has moved its file.
/// - Before each append they also try for the first writer's lock. Who gets it looks once more whether the file is in
///   its place still, since the former owner may have made an archive of it first, and takes over.
///
/// Where the file system has no locks, each one counts as the first writer.
class ActiveFile
{
public:
    ActiveFile(const FileSettings& ofTheLog, CallWatch& itsWatch) noexcept;

    // These three may throw for want of memory, and be repeated then.

    /// Makes sure that this is the file to write to, and keeps it from being compressed until append() where another
    /// writer is the first one.
    std::error_code makeReady();
    /// The same, at once and by the name in the directory, too, for whoever is going to move the file away.
    std::error_code confirm();
    /// Goes on with a file that was opened elsewhere, under the path of the settings.
    void adopt(AppendFile&& opened);

    LineAppender::Written append(const LineBatch& batch, std::size_t wanted) noexcept;
    bool isInLine() const noexcept { return lines.isInLine(); }
    void close() noexcept;

    /// Makes the next makeReady() look whether the file is still the one under its path.
    void lookAgain() noexcept { looked = {}; }

    bool isFirstWriter() const noexcept { return firstWriter; }
    /// Whether rotation and archives are this writer's business.
    bool isRotatedHere() const noexcept { return lines.current().isOpen() && firstWriter && place; }
    /// Whether it was opened under the path that the settings name by now.
    bool hasPathOfSettings() const noexcept { return openedPath == settings.path; }

    /// Another number tells that the file was closed (but for a pipe, after a failed write), or another
    /// one opened, but by replaceBy().
    unsigned generation() const noexcept { return closings; }
    const std::string& path() const noexcept { return openedPath; }
    /// Null when the file is not to be moved from where it lies.
    const std::shared_ptr<const LogPlace>& foundAt() const noexcept { return place; }
    const struct stat& lastStatus() const noexcept { return lines.current().lastStatus(); }
    std::uint64_t size() const noexcept { return lines.size(); }

    /// Whether the file has its name in the directory: PathError::NotThisFile where it does not.
    std::error_code findInPlace() { return lines.current().findAgain(*place, place->name(), watch); }
    /// The file was moved away, and that empty one, locked, has its place.
    void replaceBy(AppendFile&& fresh) noexcept { lines.begin(std::move(fresh)); }

private:
    using Steady = CallWatch::Clock;

    std::error_code openPath();
    std::error_code findAgain();
    void takeUp(AppendFile&& fresh);
    void becomeFirstWriter();
    std::error_code joinFirstWriter();
    void reportLink();
    void reportOther();

    const FileSettings& settings;
    CallWatch& watch;
    LineAppender lines;
    std::shared_ptr<const LogPlace> place;
    std::string openedPath;
    unsigned closings = 0;
    bool firstWriter = false;
    bool reportedOther = false;
    bool reportedLink = false;
    Steady::time_point looked;
};

} // namespace Zyr
