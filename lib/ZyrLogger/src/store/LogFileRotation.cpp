// How the log file gives way to a new one.

#include "store/LogFile.h"

#include "store/LogProblem.h"
#include "store/rotation/IntervalStart.h"
#include "system/FileCalls.h"
#include "system/TrustedPath.h"

#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

/// `written`: when the file was last written.
void LogFile::startTimer(Time now, Time written)
{
    const IntervalStart start(watch);
    Time began = now;
    if (settings.rotation.kind != RotationRule::Kind::Interval) {
        start.remove(*place);
    } else if (const auto kept = size > 0 ? start.read(*place) : std::nullopt) {
        began = *kept;
    } else {
        if (size > 0)
            began = start.birthOf(*place).value_or(now);
        start.write(*place, began);
    }
    timer.start(settings.rotation, settings.localTimes, began, written, now);
}

/// For a file without a line.
void LogFile::restartTimer(Time now)
{
    if (settings.rotation.kind == RotationRule::Kind::Interval)
        IntervalStart(watch).write(*place, now);
    timer.start(settings.rotation, settings.localTimes, now, now, now);
}

bool LogFile::isRotationDue(Time now)
{
    if (!place)
        return false;
    const bool tooLarge = settings.rotation.kind == RotationRule::Kind::Size && size >= settings.rotation.size;
    return (tooLarge || rotationWanted || timer.isDue(now)) && Steady::now() >= nextRotation;
}

/// Where it cannot be done, lines go on into the old file, and it is tried again soon. An error means that there is no
/// file to go on with.
std::error_code LogFile::rotateIfStillDue(Time now)
{
    lookAgain(); // what is moved away must be the file that is written
    if (const std::error_code error = makeReady(now))
        return error;
    if (firstWriter && place && file.findAgain(*place, place->name(), watch) == PathError::NotThisFile) {
        // It was moved, and a link to it put in its place.
        if (const std::error_code error = openPath(now))
            return error;
    }
    if (!firstWriter)
        return joinFirstWriter(now);
    if (!isRotationDue(now))
        return {};
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
            reportLogProblem(openedPath,
                             u"grows, since no new one can be begun: "_s + QString::fromStdString(error.message()));
    }
    rotationFailed = bool(error);
    return {};
}

/// The new file is open and ours before the old one is let go, and there is never a moment without a file in its
/// place, in which another writer would make one.
std::error_code LogFile::rotate(Time now)
{
    if (const std::error_code error = file.findAgain(*place, place->name(), watch))
        return error;
    const std::string next = place->hidden(".next");
    AppendFile fresh;
    std::error_code error = fresh.create(*place, next, watch);
    if (error == std::errc::file_exists) { // left over: perhaps an old log, which is not to be lost
        archives.cleanUp(now);
        error = fresh.create(*place, next, watch);
    }
    if (error)
        return error;

    fresh.lock(watch); // before others can open it, and lock it
    FileCalls::copyAccess(file.lastStatus(), fresh.descriptor(), watch);

    std::string archive;
    error = archives.makeRoom(now, archive);
    if (!error)
        error = place->replace(place->name(), next, archive, watch);
    if (error) {
        // It may be the old log that could not be brought back, or another writer's lines may be in it by now.
        if (!fresh.findAgain(*place, next, watch) && fresh.lastStatus().st_size == 0)
            place->remove(next, watch);
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

} // namespace Zyr
