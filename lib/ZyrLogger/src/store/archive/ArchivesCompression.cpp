// The part of Archives that chooses what to compress, and when to retry.

#include "store/archive/Archives.h"

#include <algorithm>
#include <new>

namespace Zyr {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t maxWaiting = 2;
constexpr std::chrono::seconds firstWait(4);
constexpr std::chrono::seconds maxWait(256); // each attempt writes to a disk that may be full

} // namespace

bool Archives::mustCompressFirst() const noexcept
{
    return settings.compress && waiting > maxWaiting && !failed;
}

bool Archives::canCompress(Time now) const noexcept
{
    if (!settings.compress || (waiting == 0 && !leftOvers))
        return false;
    return !failed || now >= *failed + pause || now < *failed; // the clock may have been set back
}

void Archives::compressSlice(Time now) noexcept
{
    if (!canCompress(now))
        return;
    try {
        compressNext(now);
    } catch (const std::bad_alloc&) { // no reason not to write lines
        abandonCompression();
        putOff(now, firstWait);
    }
}

void Archives::compressNext(Time now)
{
    failed.reset();
    Archive* archive = nullptr;
    auto result = ArchiveCompressor::Result::Working;
    if (compressor.isWorking()) {
        archive = &*std::find_if(list.begin(), list.end(), [](const Archive& one) { return one.compressing; });
    } else {
        archive = nextToCompress();
        result = compressor.start(log, nameOf(*archive), log->hidden(temporaryEnding));
        archive->compressing = true;
    }
    if (result == ArchiveCompressor::Result::Working)
        result = compressor.compressSlice(nameOf(*archive));
    if (result == ArchiveCompressor::Result::Working)
        return;

    archive->compressing = false;
    switch (result) {
    case ArchiveCompressor::Result::Working:
        break;
    case ArchiveCompressor::Result::Done:
        archive->name.gzipped = true;
        backoff = 0s;
        break;
    case ArchiveCompressor::Result::Gone:
        list.erase(list.begin() + (archive - list.data()));
        break;
    case ArchiveCompressor::Result::Busy:
        archive->postponed = true;
        putOff(now, 1s);
        break;
    case ArchiveCompressor::Result::Failed:
        archive->postponed = true;
        backoff = std::clamp(2 * backoff, firstWait, maxWait);
        putOff(now, backoff);
        break;
    }
    listChanged();
}

/// Archives added here, in that order, then the others, newest first, since the oldest are purged soonest. To be called
/// only if an archive waits.
Archives::Archive* Archives::nextToCompress()
{
    for (;;) {
        Archive* next = nullptr;
        for (Archive& archive : list) {
            if (!waits(archive) || archive.postponed)
                continue;
            if (!next || (archive.made > 0 && (next->made == 0 || archive.made < next->made)))
                next = &archive;
        }
        if (next)
            return next;
        for (Archive& archive : list)
            archive.postponed = false;
    }
}

/// Whether an archive of the list is to be compressed. One with a gzipped twin is left alone.
bool Archives::waits(const Archive& archive) const noexcept
{
    if (!archive.regular || archive.name.gzipped)
        return false;
    const Archive* const next = &archive + 1;
    return next == list.data() + list.size() || next->name != archive.name.as(true);
}

void Archives::putOff(Time now, std::chrono::seconds wait) noexcept
{
    failed = now;
    pause = wait;
}

void Archives::leave() noexcept
{
    if (!log)
        return;
    abandonCompression();
    log.reset();
}

/// The archive stays plain, for the next start or slice.
void Archives::abandonCompression() noexcept
{
    compressor.abandon();
    for (Archive& archive : list)
        archive.compressing = false;
}

} // namespace Zyr
