#include "chain/file/LogFile.h"

#include "chain/file/Place.h"
#include "chain/rotation/IntervalStart.h"

#include <ZyrTools/Misc.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int mostTries = 5; // to find the file that the first writer has just begun

RotationTimer::Time timeOf(const timespec& stamp)
{
    using Duration = RotationTimer::Time::duration;
    constexpr auto latest = std::chrono::duration_cast<std::chrono::seconds>(Duration::max());
    const std::chrono::seconds seconds(stamp.tv_sec);
    return RotationTimer::Time(std::chrono::duration_cast<Duration>(std::clamp(seconds, -latest, latest)));
}

} // namespace

LogFile::LogFile(CallWatch& itsWatch)
    : watch(itsWatch)
    , archives(itsWatch)
{
}

void LogFile::configure(const FileSettings& wanted)
{
    if (wanted == settings)
        return;
    settings = wanted;
    if (!file.isOpen() || openedPath != settings.path || !firstWriter || place.empty())
        return;
    keepArchives(std::chrono::system_clock::now());
}

void LogFile::adopt(AppendFile&& opened, bool beginAnew)
{
    takeUp(std::move(opened), std::chrono::system_clock::now());
    rotationWanted = beginAnew && firstWriter;
    nextRotation = {};
}

void LogFile::close() noexcept
{
    archives.abandonCompression();
    file.close(watch);
    partial = 0;
}

bool LogFile::canCompress() const
{
    return file.isOpen() && firstWriter && !place.empty() && archives.canCompress(std::chrono::system_clock::now());
}

void LogFile::compressSlice()
{
    archives.compressSlice(std::chrono::system_clock::now());
}

LogFile::Written LogFile::write(const LineBatch& batch)
{
    const Time now = std::chrono::system_clock::now();
    if (const std::error_code error = makeReady(now)) {
        lookAgain();
        return {0, error};
    }
    std::size_t lines = batch.lines();
    if (firstWriter) {
        if (isRotationDue(now)) {
            if (const std::error_code error = rotateIfStillDue(now)) {
                lookAgain();
                return {0, error};
            }
        }
        if (settings.rotation.kind == RotationRule::Kind::Size && size < settings.rotation.size)
            lines = batch.linesReaching(settings.rotation.size - size);
    }
    const Written written = append(batch, lines);
    if (!firstWriter)
        file.allowCompression(watch);
    if (written.error)
        lookAgain();
    return written;
}

/// Makes sure that `file` is the one to write to.
std::error_code LogFile::makeReady(Time now)
{
    if (file.isOpen() && openedPath != settings.path)
        close();
    if (!file.isOpen()) {
        if (const std::error_code error = openPath(now))
            return error;
    } else if (firstWriter) {
        const auto steady = Steady::now();
        if (steady - looked < 1s)
            return {};
        looked = steady;
        if (!file.isStillAt(openedPath, watch)) {
            close();
            if (const std::error_code error = openPath(now))
                return error;
        } else if (const auto found = std::uint64_t(file.lastStatus().st_size); file.isRegular() && found != size) {
            size = found;
            endLineFirst = !file.endsInLine(watch);
        }
    }
    return firstWriter ? std::error_code() : joinFirstWriter(now);
}

std::error_code LogFile::openPath(Time now)
{
    for (int tries = 0; tries < mostTries; ++tries) {
        AppendFile fresh;
        if (const std::error_code error = fresh.open(settings.path, watch))
            return error;
        takeUp(std::move(fresh), now);
        if (file.isOpen())
            return {};
    }
    return std::make_error_code(std::errc::resource_unavailable_try_again);
}

/// Leaves no file open when `fresh` is no longer the one under its path.
void LogFile::takeUp(AppendFile&& fresh, Time now)
{
    const bool samePath = std::exchange(openedPath, settings.path) == settings.path;
    looked = Steady::now();
    if (file.isSame(fresh)) {
        fresh.close(watch);
        if (samePath)
            return;
        place = file.isRegular() ? realPlace(openedPath, watch) : std::string();
        if (firstWriter && !place.empty())
            keepArchives(now);
        return;
    }
    firstWriter = !fresh.isRegular() || fresh.lock(watch);
    close();
    if (firstWriter && fresh.isRegular() && !fresh.isStillAt(openedPath, watch)) {
        fresh.close(watch); // whoever let the lock go made an archive of it first
        return;
    }
    file = std::move(fresh);
    directoryChanged = true;
    endLineFirst = false;
    rotationWanted = false;
    rotationFailed = false;
    place.clear();
    if (file.isRegular())
        place = realPlace(openedPath, watch);
    if (firstWriter)
        becomeFirstWriter(now);
    else if (!std::exchange(reportedOther, true))
        Misc::reportProblem(u"log file '"_s + QString::fromStdString(openedPath) + u'\'',
                            u"another logger writes it; this one appends, and leaves rotation and purging to it"_s);
}

void LogFile::becomeFirstWriter(Time now)
{
    firstWriter = true;
    reportedOther = false;
    size = std::uint64_t(file.lastStatus().st_size);
    endLineFirst = !file.endsInLine(watch);
    if (!place.empty())
        keepArchives(now);
}

/// Begins to look after archives and rotation as the settings say.
void LogFile::keepArchives(Time now)
{
    archives.configure(place, settings);
    archives.cleanUp(now);
    startTimer(now, size > 0 ? timeOf(file.lastStatus().st_mtim) : now);
}

/// `written`: when the file was last written.
void LogFile::startTimer(Time now, Time written)
{
    const IntervalStart start(watch);
    Time began = now;
    if (settings.rotation.kind != RotationRule::Kind::Interval) {
        start.remove(place);
    } else if (const auto kept = size > 0 ? start.read(place) : std::nullopt) {
        began = *kept;
    } else {
        if (size > 0)
            began = start.birthOf(place).value_or(now);
        start.write(place, began);
    }
    timer.start(settings.rotation, settings.localTimes, began, written, now);
}

/// For a file without a line.
void LogFile::restartTimer(Time now)
{
    if (settings.rotation.kind == RotationRule::Kind::Interval)
        IntervalStart(watch).write(place, now);
    timer.start(settings.rotation, settings.localTimes, now, now, now);
}

/// For a writer that is not the first one: finds the file that the path leads to now, and keeps it from being
/// compressed until the lines are in it. Takes over when there is no first writer any more.
std::error_code LogFile::joinFirstWriter(Time now)
{
    for (int tries = 0; tries < mostTries; ++tries) {
        if (file.isOpen() && file.holdOffCompression(watch)) {
            if (file.isStillAt(openedPath, watch)) {
                // The lock of a file that is no longer in its place says nothing.
                if (!file.lock(watch) || !file.isStillAt(openedPath, watch))
                    return {};
                file.allowCompression(watch);
                becomeFirstWriter(now);
                return {};
            }
            file.allowCompression(watch);
        }
        close();
        if (const std::error_code error = openPath(now))
            return error;
        if (firstWriter)
            return {};
    }
    return std::make_error_code(std::errc::resource_unavailable_try_again);
}

bool LogFile::isRotationDue(Time now)
{
    if (place.empty())
        return false;
    const bool tooLarge = settings.rotation.kind == RotationRule::Kind::Size && size >= settings.rotation.size;
    return (tooLarge || rotationWanted || timer.isDue(now)) && Steady::now() >= nextRotation;
}

/// Where it cannot be done, lines go on into the old file, and it is tried again soon. An error means that there is no
/// file to go on with.
std::error_code LogFile::rotateIfStillDue(Time now)
{
    lookAgain(); // what is moved away must be the file that is written
    if (const std::error_code error = makeReady(now); error || !firstWriter || !isRotationDue(now))
        return error;
    if (size == 0) { // an archive without a line would only push another one out
        rotationWanted = false;
        restartTimer(now);
        return {};
    }
    const std::error_code error = rotate(now);
    rotationWanted = rotationWanted && error;
    if (error) {
        nextRotation = Steady::now() + 900ms;
        if (!rotationFailed)
            Misc::reportProblem(u"log file '"_s + QString::fromStdString(place) + u'\'',
                                u"grows, since no new one can be begun: "_s + QString::fromStdString(error.message()));
    }
    rotationFailed = bool(error);
    return {};
}

/// The new file is open and ours before the old one is let go, and there is never a moment without a file in its
/// place, in which another writer would make one.
std::error_code LogFile::rotate(Time now)
{
    const std::string next = besideLog(place, ".next");
    AppendFile fresh;
    std::error_code error = fresh.create(next, watch);
    if (error == std::errc::file_exists) { // left over: perhaps an old log, which is not to be lost
        archives.cleanUp(now);
        error = fresh.create(next, watch);
    }
    if (error)
        return error;

    const struct stat& old = file.lastStatus();
    if (old.st_uid != fresh.lastStatus().st_uid || old.st_gid != fresh.lastStatus().st_gid)
        watch([&] { return ::fchown(fresh.descriptor(), old.st_uid, old.st_gid); }); // as far as we may
    if (old.st_mode != fresh.lastStatus().st_mode)
        watch([&] { return ::fchmod(fresh.descriptor(), old.st_mode & 07777); });
    fresh.lock(watch);

    std::string archive;
    error = archives.makeRoom(now, archive);
    if (!error)
        error = moveAway(next, archive);
    if (error) {
        // It may be the old log that could not be brought back, or another writer's lines may be in it by now.
        if (fresh.isStillAt(next, watch) && fresh.lastStatus().st_size == 0)
            watch([&] { return ::unlink(next.c_str()); });
        return error;
    }
    file.close(watch);
    file = std::move(fresh);
    size = 0;
    endLineFirst = false;
    directoryChanged = true;
    restartTimer(now);
    archives.added(archive, now);
    archives.purge(now);
    return {};
}

/// Puts the file `next` in the log's place and that under the name `archive`, or leaves all as it was.
std::error_code LogFile::moveAway(const std::string& next, const std::string& archive)
{
    const auto exchange = [&] {
        return watch([&] { return ::renameat2(AT_FDCWD, next.c_str(), AT_FDCWD, place.c_str(), RENAME_EXCHANGE); });
    };
    if (exchange() == 0) {
        const std::error_code error = renameToFree(next, archive, watch);
        if (error)
            exchange();
        return error;
    }
    if (errno != EINVAL && errno != ENOSYS)
        return lastError();
    // A file system that cannot exchange.
    if (const std::error_code error = renameToFree(place, archive, watch))
        return error;
    const std::error_code error = renameToFree(next, place, watch);
    if (error)
        renameToFree(archive, place, watch);
    return error;
}

LogFile::Written LogFile::append(const LineBatch& batch, std::size_t lines)
{
    if (endLineFirst) {
        if (const std::error_code error = file.endLine(watch))
            return {0, error};
        endLineFirst = false;
        ++size;
    }
    const AppendFile::Appended appended = file.append(batch, partial, batch.bytesOf(lines), watch);
    const std::size_t done = partial + appended.bytes;
    Written result{batch.linesWithin(done), appended.error};
    std::size_t keep = batch.bytesOf(result.lines);
    partial = done - keep;
    if (!file.isRegular()) {
        // What a pipe took is gone; its next reader gets the whole line.
        if (result.error && result.error != std::errc::resource_unavailable_try_again)
            close();
        return result;
    }

    if (settings.flush && result.lines > 0) {
        if (const std::error_code error = synchronize()) {
            result = {0, error};
            keep = 0;
        }
    }
    size += keep;
    if (keep < done) {
        const bool inLine = std::exchange(partial, 0) > 0;
        if (!firstWriter || !file.cutBack(done - keep, watch)) {
            endLineFirst = inLine;
            size += done - keep;
        }
    }
    return result;
}

/// What was written, and the name under which it is found, are on the disk afterwards. The latter waits while the
/// directory may not be read or no descriptor is left: that is no reason to keep records back.
std::error_code LogFile::synchronize()
{
    if (const std::error_code error = file.synchronize(watch))
        return error;
    if (!directoryChanged)
        return {};
    const std::string name = directoryOf(place.empty() ? openedPath : place);
    const int directory = watch([&] { return ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (directory < 0)
        return errno == EACCES || errno == EMFILE || errno == ENFILE ? std::error_code() : lastError();
    const bool done = watch([&] { return ::fsync(directory); }, 10s) == 0 || errno == EINVAL;
    const std::error_code error = done ? std::error_code() : lastError();
    watch([&] { return ::close(directory); });
    directoryChanged = !done;
    return error;
}

} // namespace Zyr
