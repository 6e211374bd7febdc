#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zyr {

/// A piece of memory for lines, which lie behind each other as they are written, and for the offsets of their ends, in
/// a table before them.
///
/// An end is zero until its line is committed. The fields are the owner's, the bytes and the end of a line those of the
/// thread that has reserved its place.
struct LineChunk
{
    static constexpr std::size_t maxLines = 1024;

    /// The system gives the memory page by page as it is used, or at once, which takes less time in all; and gets it
    /// back at once. Null when there is none.
    static LineChunk* map(std::size_t bytes, bool atOnce) noexcept;
    /// Unmaps a list of chunks.
    static void unmap(LineChunk* list) noexcept;

    /// How many lines go into a chunk of so many bytes: few enough that the table is small, and that only lines shorter
    /// than any of the usual pattern leave room unused.
    static constexpr std::uint32_t linesIn(std::size_t bytes) noexcept
    {
        constexpr std::size_t bytesPerLine = 64;
        return static_cast<std::uint32_t>(std::min(bytes / bytesPerLine, maxLines));
    }
    /// The space for lines and their line ends.
    static constexpr std::size_t spaceIn(std::size_t bytes) noexcept
    {
        return bytes - sizeof(LineChunk) - linesIn(bytes) * sizeof(std::uint32_t);
    }

    std::uint32_t* ends() noexcept { return reinterpret_cast<std::uint32_t*>(this + 1); }
    char* data() noexcept { return reinterpret_cast<char*>(ends() + linesIn(bytes)); }

    /// Copies a line and its line end to the place that is reserved for it, and commits it.
    void put(std::string_view line, std::uint32_t number, std::size_t offset) noexcept;
    /// How many of so many reserved lines are committed, up to the first that is not.
    std::uint32_t committedLines(std::uint32_t reserved) noexcept;
    /// Before other lines are put in the place of the first `count`, which have left.
    void forget(std::uint32_t count) noexcept;

    LineChunk* next;
    std::size_t bytes;       ///< of the mapping, this header and the table included
    std::uint32_t begin;     ///< offset of the first line that is still queued
    std::uint32_t consumed;  ///< number of lines that have left
    std::uint32_t committed; ///< number of lines found to be committed, without a gap; the consumed ones included
    std::uint32_t lines;     ///< number of lines in all, once no more are added
};

} // namespace Zyr
