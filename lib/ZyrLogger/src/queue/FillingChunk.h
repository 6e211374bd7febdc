#pragma once

#include "queue/LineChunk.h"

#include <atomic>
#include <cstdint>
#include <string_view>

namespace Zyr {

/// The chunk that lines are added to, and how far it is filled. Threads reserve the place for a line in one atomic
/// step, which decides the order of lines, and copy it there at the same time, all without a lock.
class alignas(64) FillingChunk
{
public:
    /// From any thread. False where there is no room, or no chunk, or the way is shut.
    bool append(std::string_view line) noexcept;

    // The rest is for the owner of the chunks, one thread at a time.

    /// Also where the way is shut.
    bool appendAnyway(std::string_view line) noexcept;
    /// Whether append() takes lines; not in the beginning.
    void openFastPath(bool isOpen) noexcept;

    /// With its first line, so that no other takes the room for that. After close().
    void open(LineChunk* next, std::string_view line) noexcept;
    /// How many lines have a place in the open chunk; they need not be there yet.
    std::uint32_t lines() const noexcept;
    /// Begins the open chunk anew, if it has no more than those lines, which have left it.
    bool restart(std::uint32_t lines) noexcept;
    /// No line is added to the chunk any more. Returns lines().
    std::uint32_t close() noexcept;

private:
    // From the top: whether the way is shut, the number of the chunk, for how many more lines it has places, and the
    // space for them. The number comes again after two million chunks: a thread would have to stop between two
    // instructions for as long as they take, and to find the same space and places left, to take one for the other.
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
    std::atomic<LineChunk*> chunk = nullptr; ///< open while the state has the same number
};

} // namespace Zyr
