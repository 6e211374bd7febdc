#pragma once

#include "queue/LineChunk.h"

#include <atomic>
#include <cstdint>
#include <string_view>

namespace Zyr {

/// The chunk that lines are added to, by all threads at once and without a lock. A line takes three steps, its chunk a
/// fourth:
///
/// 1. Reserve: a compare-and-swap of `state` takes a place in the table of ends and space for the bytes. This decides
///    the order of lines. `state` is loaded with acquire, which pairs with open(): the thread sees at least the chunk
///    of the number that it has read. It cannot see a later one and succeed: that is stored after close(), whose
///    exchange would have read what the swap released, and the number differs by then. The swap itself is sequentially
///    consistent: it comes before the caller's look at WorkerState::isSleeping(), as the worker goes to sleep before it
///    looks at `state` once more (lines()), so one of the two sees the other. It acquires as well: it may find a state
///    that restart() has brought back since the load.
/// 2. Copy: no other thread writes to that place, and the chunk stays: the owner recycles one only when it has consumed
///    every line that has a place there.
/// 3. Commit: the end of the line is stored with release (LineChunk::put()), the owner loads it with acquire
///    (LineChunk::committedLines()), and sees the bytes. It consumes lines up to the first that is not committed.
/// 4. Recycle: the owner zeroes the table and releases the zeroes to whoever reserves next: by restart(), a swap that
///    brings back the empty state with the same number, unless a line was reserved since, when the chunk goes on with
///    what is left of it; or, for a chunk that was closed, by the open() that uses it again.
class alignas(64) FillingChunk
{
public:
    /// From any thread. False where there is no room, or no chunk, or the fast path is closed.
    bool append(std::string_view line) noexcept;

    // The rest is for the owner of the chunks, one thread at a time.

    /// Also while the fast path is closed.
    bool appendAnyway(std::string_view line) noexcept;
    /// Whether append() takes lines; not in the beginning.
    void openFastPath(bool isOpen) noexcept;

    /// With its first line, so that no other takes the room for that. After close().
    void open(LineChunk* next, std::string_view line) noexcept;
    /// How many lines have a place in the open chunk; they need not be committed yet.
    std::uint32_t lines() const noexcept;
    /// Begins the open chunk anew, if it has no more than those lines, which have left it.
    bool restart(std::uint32_t lines) noexcept;
    /// No line is added to the chunk any more. Returns lines().
    std::uint32_t close() noexcept;

private:
    // From the top: whether the fast path is closed, the chunk's number, how many places it has left, and how much
    // space. The number is an ABA guard of 21 bits: it comes again after two million chunks, and only a thread that was
    // preempted between its load and its swap for as long as they take, and then finds the same space and places left,
    // would take one chunk for the other.
    static constexpr std::uint64_t onePlace = std::uint64_t(1) << 31;
    static constexpr std::uint64_t oneChunk = onePlace * 2 * LineChunk::maxLines;
    static constexpr std::uint64_t closedMark = std::uint64_t(1) << 63;
    static constexpr std::uint64_t chunkMask = closedMark - oneChunk;

    static std::uint32_t placesIn(std::uint64_t state) noexcept
    {
        return static_cast<std::uint32_t>(state % oneChunk / onePlace);
    }
    static std::uint32_t spaceIn(std::uint64_t state) noexcept { return static_cast<std::uint32_t>(state % onePlace); }
    static std::uint64_t whenEmpty(const LineChunk& chunk) noexcept;
    bool append(std::string_view line, std::uint64_t obstacles) noexcept;

    std::atomic<std::uint64_t> state = closedMark;
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
    std::atomic<LineChunk*> chunk = nullptr; ///< the one whose number the state has, between open() and close()
};

} // namespace Zyr
