// The archives of one log file: their list, the name for the next one, purging, and recovery after a kill.

#include "store/archive/Archives.h"

#include "system/FileCalls.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <limits>
#include <utility>

#include <sys/stat.h>

namespace Zyr {

namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

std::int64_t secondsOf(Archives::Time time)
{
    return std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
}

bool isTwin(const ArchiveName& one, const ArchiveName& other)
{
    return one.as(true) == other.as(true);
}

} // namespace

Archives::Archives(CallWatch& itsWatch)
    : watch(itsWatch)
    , compressor(itsWatch)
{
}

void Archives::configure(std::shared_ptr<const LogPlace> itsLog, const FileSettings& wanted)
{
    const bool otherLog = !log || !log->isSame(*itsLog);
    if (otherLog || !wanted.compress)
        abandonCompression();
    log = std::move(itsLog);
    if (otherLog) {
        list.clear();
        scanned = false;
    }
    settings = wanted;
    nextExpiry = 0;
    failed.reset();
    listChanged();
}

std::error_code Archives::scan()
{
    std::vector<FoundArchive> found;
    if (const std::error_code error = findArchives(*log, found, watch))
        return error;
    List known;
    known.reserve(found.size());
    for (const FoundArchive& archive : found)
        known.push_back({archive});
    known.swap(list);
    scanned = true;
    listChanged();

    for (const Archive& archive : known) {
        if (archive.made == 0 && !archive.compressing && !archive.postponed)
            continue;
        const auto before = [this](const Archive& one, const Archive& other) { return goesBefore(one, other); };
        const auto same = std::lower_bound(list.begin(), list.end(), archive, before);
        if (same != list.end() && same->name == archive.name)
            *same = {{archive.name, same->regular}, archive.made, archive.compressing, archive.postponed};
        else if (archive.compressing)
            compressor.abandon();
    }
    listChanged();
    return {};
}

void Archives::listChanged()
{
    std::sort(list.begin(), list.end(),
              [this](const Archive& one, const Archive& other) { return goesBefore(one, other); });
    waiting = 0;
    leftOvers = false;
    for (const Archive& archive : list) {
        if (!waits(archive))
            continue;
        if (archive.made > 0)
            ++waiting;
        else
            leftOvers = true;
    }
}

/// The configured kind, numbered or timestamped, before the other; newest first; a plain file before its gzipped twin.
bool Archives::goesBefore(const Archive& one, const Archive& other) const noexcept
{
    if (one.name.isTimestamped() != other.name.isTimestamped())
        return one.name.isTimestamped() == settings.timestampedArchives;
    if (isTwin(one.name, other.name))
        return one.name.gzipped < other.name.gzipped;
    return one.name.isNewerThan(other.name);
}

std::error_code Archives::makeRoom(Time now, std::string& archiveName)
{
    if (const std::error_code error = scan())
        return error;
    ArchiveName wanted;
    if (settings.timestampedArchives) {
        wanted.stamp = freeStamp(now);
    } else {
        wanted.number = 0;
        if (const std::error_code error = shift())
            return error;
    }
    archiveName = log->name() + wanted.suffix();
    return {};
}

/// Later than all existing stamps, even if the clock was set back, so that the names are in the order of the logs.
std::uint64_t Archives::freeStamp(Time now) const noexcept
{
    const std::uint64_t stamp = ArchiveStamp::of(now, settings.localTimes);
    std::uint64_t newest = 0;
    for (const Archive& archive : list)
        newest = std::max(newest, archive.name.stamp);
    return newest < stamp ? stamp : ArchiveStamp::after(newest);
}

/// Counts up the numbers of the archives from 0 to the first gap, the last one first.
std::error_code Archives::shift()
{
    auto end = list.begin();
    std::int32_t gap = 0;
    while (end != list.end() && !end->name.isTimestamped() && end->name.number <= gap)
        gap = end++->name.number + 1;
    while (end != list.begin()) {
        --end;
        ArchiveName moved = end->name;
        ++moved.number;
        const std::error_code error = log->renameToFree(nameOf(*end), log->name() + moved.suffix(), watch);
        if (error && error != std::errc::no_such_file_or_directory) // removed since the scan: nothing to move
            return error;
        if (error && end->compressing)
            compressor.abandon();
        if (error) {
            end = list.erase(end);
            listChanged();
        } else {
            end->name = moved;
        }
    }
    return {};
}

struct Archives::AgeLimit
{
    AgeLimit(std::chrono::seconds itsAge, Time now, bool localTimes)
        : age(itsAge.count())
        , present(secondsOf(now))
    {
        if (age < present)
            stamp = ArchiveStamp::of(now - itsAge, localTimes);
    }

    std::int64_t age;
    std::int64_t present;
    std::uint64_t stamp = 0; ///< the newest one that is too old
};

void Archives::added(const std::string& archiveName, Time now)
{
    const auto name = ArchiveName::parse(log->name(), archiveName);
    if (!name)
        return;
    list.push_back({{*name}, ++made});
    if (settings.purgeAge && !name->isTimestamped())
        isTooOld(list.back(), AgeLimit{*settings.purgeAge, now, settings.localTimes});
    failed.reset();
    listChanged();
}

/// By the time stamp in the name, or else by the time of the last write.
bool Archives::isTooOld(const Archive& archive, const AgeLimit& limit)
{
    if (archive.name.isTimestamped())
        return archive.name.stamp <= limit.stamp;
    struct stat status = {};
    if (!log->status(nameOf(archive), status, watch))
        return false;
    const std::int64_t written = status.st_mtim.tv_sec;
    const std::int64_t expiry = limit.age < never / 2 ? written + limit.age : never;
    nextExpiry = std::min(nextExpiry, expiry);
    return expiry <= limit.present;
}

void Archives::purge(Time now)
{
    if (!settings.purgeAge && !settings.purgeCount)
        return;
    if (!scanned && scan())
        return;
    std::optional<AgeLimit> limit;
    bool timesMatter = false;
    if (settings.purgeAge) {
        limit.emplace(*settings.purgeAge, now, settings.localTimes);
        timesMatter = nextExpiry <= limit->present;
        if (timesMatter)
            nextExpiry = never;
    }

    std::size_t rank = 0; // the same for a plain file and its gzipped twin
    const ArchiveName* previous = nullptr;
    List kept;
    kept.reserve(list.size());
    for (const Archive& archive : list) {
        bool tooMany = false;
        bool tooOld = false;
        if (archive.regular) {
            rank += previous && isTwin(*previous, archive.name) ? 0 : 1;
            previous = &archive.name;
            tooMany = settings.purgeCount && rank > *settings.purgeCount;
            tooOld = limit && (timesMatter || archive.name.isTimestamped()) && isTooOld(archive, *limit);
        }
        const bool latest = made > 0 && archive.made == made;
        if (latest || !(tooMany || tooOld) || !remove(archive))
            kept.push_back(archive);
    }
    list.swap(kept);
    listChanged();
}

/// False when the file still exists.
bool Archives::remove(const Archive& archive)
{
    if (archive.compressing)
        abandonCompression();
    return log->remove(nameOf(archive), watch) || errno == ENOENT;
}

std::error_code Archives::cleanUp(Time now)
{
    if (!compressor.isWorking())
        log->remove(log->hidden(temporaryEnding), watch);
    std::error_code error = scan();
    if (!error)
        removePlainTwins();
    if (!error)
        error = rescueLog(now);
    purge(now);
    return error;
}

/// Finishes a compression stopped after the .gz was in place.
void Archives::removePlainTwins()
{
    List kept;
    kept.reserve(list.size());
    for (auto archive = list.cbegin(); archive != list.cend(); ++archive) {
        const auto next = std::next(archive);
        const bool done = next != list.cend() && isTwin(archive->name, next->name) && archive->regular &&
                          next->regular && holdsAllOf(*log, nameOf(*next), nameOf(*archive), watch);
        if (!done || !remove(*archive))
            kept.push_back(*archive);
    }
    list.swap(kept);
    listChanged();
}

/// Recovers the log of a rotation stopped between exchange and rename.
std::error_code Archives::rescueLog(Time now)
{
    const std::string old = log->hidden(".next");
    struct stat status = {};
    if (!log->status(old, status, watch))
        return errno == ENOENT ? std::error_code() : lastError();
    if (!S_ISREG(status.st_mode))
        return std::make_error_code(std::errc::file_exists);
    if (status.st_size == 0)
        return log->remove(old, watch) ? std::error_code() : lastError();
    std::string archive;
    if (const std::error_code error = makeRoom(now, archive))
        return error;
    if (const std::error_code error = log->renameToFree(old, archive, watch))
        return error;
    added(archive, now);
    return {};
}

} // namespace Zyr
