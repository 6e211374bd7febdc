// The order of steps in which the log file is opened, rotated and written.

#include "store/LogFile.h"

#include <chrono>
#include <utility>

namespace Zyr {

using Clock = std::chrono::system_clock;

LogFile::LogFile(CallWatch& watch)
    : active(settings, watch)
    , rotation(settings, watch)
{
}

void LogFile::apply(Change& change)
{
    if (std::exchange(change.lookAgain, false))
        active.lookAgain();
    if (change.settings) {
        configure(*change.settings);
        change.settings.reset();
    }
    if (change.opened) {
        adopt(std::move(*change.opened), change.rotateFirst);
        change.opened.reset();
    }
}

void LogFile::configure(FileSettings wanted)
{
    if (wanted == settings)
        return;
    settings = std::move(wanted);
    rotation.settingsChanged();
    if (active.hasPathOfSettings())
        rotation.follow(active, Clock::now());
}

void LogFile::adopt(AppendFile&& opened, bool rotateFirst)
{
    if (opened.isOpen())
        active.adopt(std::move(opened));
    if (active.hasPathOfSettings())
        rotation.follow(active, Clock::now());
    rotation.request(rotateFirst && active.isFirstWriter());
}

void LogFile::close() noexcept
{
    rotation.leave();
    active.close();
}

LogFile::Written LogFile::write(const LineBatch& batch)
{
    const auto now = Clock::now();
    std::error_code error = active.makeReady();
    rotation.follow(active, now);
    if (!error)
        error = rotation.rotateIfDue(active, now);
    Written written{0, error};
    if (!error)
        written = active.append(batch, rotation.linesFitting(active, batch));
    if (written.error)
        active.lookAgain();
    return written;
}

LineStore::Maintenance LogFile::maintenanceDue() const noexcept
{
    if (!active.isRotatedHere() || !rotation.canCompress(Clock::now()))
        return Maintenance::None;
    return rotation.mustCompressFirst() ? Maintenance::GoesFirst : Maintenance::Yields;
}

void LogFile::maintain() noexcept
{
    rotation.compressSlice(Clock::now());
}

} // namespace Zyr
