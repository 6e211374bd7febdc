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
        adopt(std::move(*change.opened), change.beginAnew);
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

void LogFile::adopt(AppendFile&& opened, bool beginAnew)
{
    if (opened.isOpen())
        active.adopt(std::move(opened));
    if (active.hasPathOfSettings())
        rotation.follow(active, Clock::now());
    rotation.request(beginAnew && active.isFirstWriter());
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

LineStore::Upkeep LogFile::upkeep() const noexcept
{
    if (!active.isRotatedHere() || !rotation.canCompress(Clock::now()))
        return Upkeep::None;
    return rotation.mustCompressFirst() ? Upkeep::GoesFirst : Upkeep::Yields;
}

void LogFile::keepUp() noexcept
{
    rotation.compressSlice(Clock::now());
}

} // namespace Zyr
