// Writing lines to the log file.
#include "store/LogFile.h"

#include "store/LogProblem.h"
#include "system/LockHolder.h"
#include "system/TrustedPath.h"

#include <algorithm>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int maxTries = 5; // to find the file that the first writer has just begun

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

void LogFile::configure(FileSettings wanted)
{
    if (wanted == settings)
        return;
    settings = std::move(wanted);
    archivesKept = false;
    if (hasArchives() && openedPath == settings.path)
        keepArchives(std::chrono::system_clock::now());
}

void LogFile::adopt(AppendFile&& opened, bool beginAnew)
{
    if (opened.isOpen())
        takeUp(std::move(opened), std::chrono::system_clock::now());
    rotationWanted = beginAnew && firstWriter;
    nextRotation = {};
}

void LogFile::close() noexcept
{
    archives.leave();
    archivesKept = false;
    file.close(watch);
    place.reset();
    partial = 0;
}

bool LogFile::canCompress() const
{
    return hasArchives() && archivesKept && archives.canCompress(std::chrono::system_clock::now());
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
    if (hasArchives() && !archivesKept)
        keepArchives(now);
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
        if (findAgain() == PathError::NotThisFile) { // one that cannot be looked at counts as unchanged
            if (const std::error_code error = openPath(now))
                return error;
        } else if (const auto found = std::uint64_t(file.lastStatus().st_size); file.isRegular() && found != size) {
            size = found;
            endLineFirst = !file.endsInLine(watch);
        }
    }
    return firstWriter ? std::error_code() : joinFirstWriter(now);
}

/// Where the path leads through a link that is not followed, the file that is open stays.
std::error_code LogFile::openPath(Time now)
{
    for (int tries = 0; tries < maxTries; ++tries) {
        AppendFile fresh;
        if (const std::error_code error = fresh.open(settings.path, watch)) {
            if (error == PathError::ForeignLink && file.isOpen()) {
                reportLink();
                return {};
            }
            close();
            return error;
        }
        takeUp(std::move(fresh), now);
        if (file.isOpen())
            return {};
    }
    return std::make_error_code(std::errc::resource_unavailable_try_again);
}

/// Looks whether the file is still the one under its path.
std::error_code LogFile::findAgain()
{
    const std::error_code error = file.findAgain(openedPath, watch);
    if (error == PathError::ForeignLink)
        reportLink();
    else if (!error)
        reportedLink = false;
    return error;
}

void LogFile::reportLink()
{
    if (!std::exchange(reportedLink, true))
        reportLogProblem(openedPath, QString::fromStdString(make_error_code(PathError::ForeignLink).message()) +
                                         u"; the file that is open goes on"_s);
}

/// Leaves no file open when `fresh` is no longer the one under its path.
void LogFile::takeUp(AppendFile&& fresh, Time now)
{
    const bool samePath = std::exchange(openedPath, settings.path) == settings.path;
    looked = Steady::now();
    const std::shared_ptr<const LogPlace> found = fresh.foundAt();
    if (file.isSame(fresh)) {
        fresh.close(watch);
        if (samePath && found && place && found->isSame(*place))
            return;
        place = found;
        if (firstWriter && place)
            keepArchives(now);
        else
            archives.leave();
        return;
    }
    firstWriter = !fresh.isRegular() || fresh.lock(watch);
    close();
    if (firstWriter && fresh.isRegular() && fresh.findAgain(openedPath, watch) == PathError::NotThisFile) {
        fresh.close(watch); // whoever let the lock go made an archive of it first
        return;
    }
    file = std::move(fresh);
    directoryChanged = true;
    endLineFirst = false;
    rotationWanted = false;
    rotationFailed = false;
    place = found;
    if (firstWriter)
        becomeFirstWriter(now);
    else if (!std::exchange(reportedOther, true))
        reportOther();
}

void LogFile::reportOther()
{
    const std::string holder = lockHolder(file.lastStatus());
    QString problem = u"another logger writes it; this one appends, and leaves rotation and purging to it"_s;
    if (!holder.empty())
        problem += u" (its lock is held by %1)"_s.arg(QString::fromStdString(holder));
    reportLogProblem(openedPath, problem);
}

void LogFile::becomeFirstWriter(Time now)
{
    firstWriter = true;
    reportedOther = false;
    size = std::uint64_t(file.lastStatus().st_size);
    endLineFirst = !file.endsInLine(watch);
    if (place)
        keepArchives(now);
}

/// Begins to look after archives and rotation as the settings say.
void LogFile::keepArchives(Time now)
{
    archivesKept = false;
    archives.configure(place, settings);
    archives.cleanUp(now);
    startTimer(now, size > 0 ? timeOf(file.lastStatus().st_mtim) : now);
    archivesKept = true;
}

/// For a writer that is not the first one: finds the file that the path leads to now, and keeps it from being
/// compressed until the lines are in it. Takes over when there is no first writer any more.
std::error_code LogFile::joinFirstWriter(Time now)
{
    for (int tries = 0; tries < maxTries; ++tries) {
        if (file.isOpen() && file.holdOffCompression(watch)) {
            if (const std::error_code error = findAgain(); error != PathError::NotThisFile) {
                // The lock of a file that is no longer in its place, or may not be, says nothing.
                if (error || !file.lock(watch) || findAgain())
                    return {};
                file.allowCompression(watch);
                becomeFirstWriter(now);
                return {};
            }
            file.allowCompression(watch);
        }
        if (const std::error_code error = openPath(now))
            return error;
        if (firstWriter)
            return {};
    }
    return std::make_error_code(std::errc::resource_unavailable_try_again);
}

LogFile::Written LogFile::append(const LineBatch& batch, std::size_t lines) noexcept
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
std::error_code LogFile::synchronize() noexcept
{
    if (const std::error_code error = file.synchronize(watch))
        return error;
    if (!directoryChanged || !place)
        return {};
    const std::error_code error = place->synchronize(watch);
    directoryChanged = bool(error);
    const bool unreadable = error == std::errc::permission_denied || error == std::errc::too_many_files_open ||
                            error == std::errc::too_many_files_open_in_system;
    return unreadable ? std::error_code() : error;
}

} // namespace Zyr
