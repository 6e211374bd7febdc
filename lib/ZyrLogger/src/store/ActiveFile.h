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
/// - The first writer is the one that has the file's flock() lock, as long as it has the file open. It alone rotates,
///   purges, compresses and cuts back. A forked child closes its copy of the file, so the lock ends with its owner.
/// - The others append whole lines. Around each append they hold a shared lock on the contents (holdOffCompression),
///   and check under it whether the path still leads to this file. The compressor takes that lock exclusively once:
///   then no append is under way, and later writers find that the file is no longer the log. So an archive is never
///   written while it is compressed, or afterwards.
/// - They follow a rotation, since the path leads to another file then. The first writer locks the new file before it
///   has the log's name, so it stays the first one. Once a second it checks whether somebody has moved its file.
/// - Before each append they also try to take the first writer's lock. The one that gets it takes over, after another
///   check of the path: the former owner may have made an archive of the file before.
///
/// On a file system without locks, each one counts as the first writer.
class ActiveFile
{
public:
    ActiveFile(const FileSettings& logSettings, CallWatch& itsWatch) noexcept;

    // These three may throw std::bad_alloc, and can be repeated then.

    /// Makes sure that this is the file to write to. If another writer is the first one, also holds off compression
    /// until append().
    std::error_code makeReady();
    /// The same without waiting out the second, and also checks the name in the directory: before the file is moved.
    std::error_code confirm();
    /// Continues with a file that was opened elsewhere, under the path of the settings.
    void adopt(AppendFile&& opened);

    LineAppender::Written append(const LineBatch& batch, std::size_t wanted) noexcept;
    bool isInLine() const noexcept { return lines.isInLine(); }
    void close() noexcept;

    /// Makes the next makeReady() check whether the path still leads to the file.
    void lookAgain() noexcept { lastLook = {}; }

    bool isFirstWriter() const noexcept { return firstWriter; }
    /// Whether this writer rotates the file and manages its archives.
    bool isRotatedHere() const noexcept { return lines.current().isOpen() && firstWriter && place; }
    /// Whether it was opened under the path of the current settings.
    bool hasPathOfSettings() const noexcept { return openedPath == settings.path; }

    /// Changes when the file is closed or another one opened, except by replaceBy() and for a pipe after a failed
    /// write.
    unsigned generation() const noexcept { return closings; }
    const std::string& path() const noexcept { return openedPath; }
    /// Null when the file must not be moved.
    const std::shared_ptr<const LogPlace>& foundAt() const noexcept { return place; }
    const struct stat& lastStatus() const noexcept { return lines.current().lastStatus(); }
    std::uint64_t size() const noexcept { return lines.size(); }

    /// Whether the file still has its name in the directory: PathError::NotThisFile if not.
    std::error_code findInPlace() { return lines.current().findAgain(*place, place->name(), watch); }
    /// The file was moved away and replaced by that one, which is empty and locked.
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
    Steady::time_point lastLook;
};

} // namespace Zyr
