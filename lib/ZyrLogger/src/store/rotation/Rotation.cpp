// Replaces the active log file by a new one, without a moment at which there is no log to open.

#include "store/rotation/Rotation.h"

#include "store/LogProblem.h"
#include "store/rotation/IntervalStart.h"
#include "system/FileCalls.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

RotationTimer::Time timeOf(const timespec& stamp)
{
    using Duration = RotationTimer::Time::duration;
    constexpr auto latest = std::chrono::duration_cast<std::chrono::seconds>(Duration::max());
    const std::chrono::seconds seconds(stamp.tv_sec);
    return RotationTimer::Time(std::chrono::duration_cast<Duration>(std::clamp(seconds, -latest, latest)));
}

} // namespace

Rotation::Rotation(const FileSettings& logSettings, CallWatch& itsWatch)
    : settings(logSettings)
    , watch(itsWatch)
    , archives(itsWatch)
{
}

void Rotation::follow(const ActiveFile& active, Time now)
{
    if (std::exchange(followed, active.generation()) != active.generation()) {
        leave();
        wanted = false;
        failed = false;
    }
    if (!active.isRotatedHere())
        leave();
    else if (!ready || !archives.isOf(active.foundAt()))
        begin(active, now);
}

void Rotation::leave() noexcept
{
    ready = false;
    archives.leave();
}

void Rotation::request(bool rotateFirst) noexcept
{
    wanted = rotateFirst;
    nextTry = {};
}

void Rotation::begin(const ActiveFile& active, Time now)
{
    ready = false;
    const LogPlace& place = *active.foundAt();
    archives.configure(active.foundAt(), settings);
    archives.cleanUp(now);

    const bool hasLines = active.size() > 0;
    const IntervalStart start(watch);
    Time began = now;
    if (!settings.rotation.keepsStart()) {
        start.remove(place);
    } else if (const auto kept = hasLines ? start.read(place) : std::nullopt) {
        began = *kept;
    } else {
        if (hasLines)
            began = start.birthTimeOf(place).value_or(now);
        start.write(place, began);
    }
    const Time written = hasLines ? timeOf(active.lastStatus().st_mtim) : now;
    timer.start(settings.rotation, settings.localTimes, began, written, now);
    ready = true;
}

/// For an empty file.
void Rotation::restartTimer(const ActiveFile& active, Time now)
{
    if (settings.rotation.keepsStart())
        IntervalStart(watch).write(*active.foundAt(), now);
    timer.start(settings.rotation, settings.localTimes, now, now, now);
}

bool Rotation::isDue(const ActiveFile& active, Time now)
{
    if (!active.isRotatedHere())
        return false;
    const bool tooLarge = active.size() >= settings.rotation.sizeLimit();
    return (tooLarge || wanted || timer.isDue(now)) && Steady::now() >= nextTry;
}

std::size_t Rotation::linesFitting(const ActiveFile& active, const LineBatch& batch) const noexcept
{
    const std::uint64_t limit = settings.rotation.sizeLimit();
    const bool limited = active.isRotatedHere() && active.size() < limit;
    return limited ? batch.linesReaching(limit - active.size()) : batch.lines();
}

std::error_code Rotation::rotateIfDue(ActiveFile& active, Time now)
{
    if (!isDue(active, now))
        return {};
    const std::error_code gone = active.confirm(); // only the file that is being written may be moved
    follow(active, now);
    if (gone || !isDue(active, now))
        return gone;
    if (active.size() == 0) { // an archive without a line would only push another one out
        wanted = false;
        restartTimer(active, now);
        return {};
    }
    const std::error_code error = rotate(active, now);
    wanted = wanted && error;
    if (error) {
        nextTry = Steady::now() + 900ms;
        if (!failed)
            reportLogProblem(active.path(),
                             u"grows, since no new one can be begun: "_s + QString::fromStdString(error.message()));
    }
    failed = bool(error);
    return {};
}

/// The new file is open and locked before the old one is released, and the path always leads to a file: otherwise
/// another writer would create one.
std::error_code Rotation::rotate(ActiveFile& active, Time now)
{
    assert(ready && active.isRotatedHere() && active.size() > 0);
    if (const std::error_code error = active.findInPlace())
        return error;
    const LogPlace& place = *active.foundAt();
    const std::string next = place.hidden(".next");
    AppendFile fresh;
    std::error_code error = fresh.create(place, next, watch);
    if (error == std::errc::file_exists) { // left by a crash: may be an old log, so cleanUp() rescues it
        archives.cleanUp(now);
        error = fresh.create(place, next, watch);
    }
    if (error)
        return error;

    fresh.lock(watch); // before others can open it, and lock it
    FileCalls::copyAccess(active.lastStatus(), fresh.descriptor(), watch);

    std::string archive;
    error = archives.makeRoom(now, archive);
    if (!error)
        error = place.replace(place.name(), next, archive, watch);
    if (error) {
        // Only if it is still the empty file: not the old log that could not be renamed back, nor with another writer's
        // lines.
        if (!fresh.findAgain(place, next, watch) && fresh.lastStatus().st_size == 0)
            place.remove(next, watch);
        return error;
    }
    ready = false; // after a std::bad_alloc below, follow() begins anew
    active.replaceBy(std::move(fresh));
    restartTimer(active, now);
    archives.added(archive, now);
    archives.purge(now);
    ready = true;
    return {};
}

} // namespace Zyr
