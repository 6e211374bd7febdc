#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include <sys/uio.h>

namespace Zyr {

/// Whole lines in memory that go to the file together, in runs that lie at one place each. Owns none of it.
class LineBatch
{
public:
    struct Run
    {
        const char* data;
        const std::uint32_t* ends; ///< offsets behind the line ends
        std::uint32_t base;        ///< the offset that `data` has
        std::uint32_t count;       ///< of lines

        std::size_t end(std::size_t line) const noexcept { return ends[line] - base; }
        std::size_t bytes() const noexcept { return count == 0 ? 0 : end(count - 1); }
    };

    static constexpr std::size_t maxRuns = 64;

    bool isFull() const noexcept { return runs == maxRuns; }
    void add(const Run& run) noexcept;

    std::size_t lines() const noexcept { return lineCount; }
    std::size_t bytes() const noexcept { return byteCount; }

    /// How many lines have at least `bytes` together; all when they have less.
    std::size_t linesReaching(std::uint64_t bytes) const noexcept;
    /// How many lines lie wholly in the first `bytes`.
    std::size_t linesWithin(std::size_t bytes) const noexcept;
    std::size_t bytesOf(std::size_t lines) const noexcept;

    /// The bytes from `from` to `to` (offsets in the batch), as much as fits into `pieces`. Returns how many pieces.
    std::size_t pieces(std::size_t from, std::size_t to, std::span<iovec> pieces) const noexcept;

private:
    std::array<Run, maxRuns> all;
    std::size_t runs = 0;
    std::size_t lineCount = 0;
    std::size_t byteCount = 0;
};

} // namespace Zyr
