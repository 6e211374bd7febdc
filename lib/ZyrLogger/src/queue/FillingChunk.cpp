// How threads reserve the place for a line, and the owner opens, closes and recycles the chunk.

#include "queue/FillingChunk.h"

#include <cassert>

namespace Zyr {

bool FillingChunk::append(std::string_view line) noexcept
{
    return append(line, closedMark);
}

bool FillingChunk::appendAnyway(std::string_view line) noexcept
{
    return append(line, 0);
}

bool FillingChunk::append(std::string_view line, std::uint64_t obstacles) noexcept
{
    const std::uint64_t space = line.size() + 1;
    std::uint64_t now = state.load(std::memory_order_acquire);
    LineChunk* open = nullptr;
    do {
        if ((now & obstacles) || placesIn(now) == 0 || spaceIn(now) < space)
            return false;
        open = chunk.load(std::memory_order_relaxed); // the state's one, or the swap fails
    } while (!state.compare_exchange_weak(now, now - onePlace - space, std::memory_order_seq_cst,
                                          std::memory_order_acquire));
    // The owner recycles a chunk only after committedLines() counts this line.
    open->put(line, LineChunk::linesIn(open->bytes) - placesIn(now), LineChunk::spaceIn(open->bytes) - spaceIn(now));
    return true;
}

void FillingChunk::openFastPath(bool isOpen) noexcept
{
    if (isOpen)
        state.fetch_and(~closedMark);
    else
        state.fetch_or(closedMark);
}

std::uint64_t FillingChunk::whenEmpty(const LineChunk& chunk) noexcept
{
    return LineChunk::linesIn(chunk.bytes) * onePlace + LineChunk::spaceIn(chunk.bytes);
}

void FillingChunk::open(LineChunk* next, std::string_view line) noexcept
{
    assert(placesIn(state) == 0 && spaceIn(state) == 0); // closed: nobody reserves in it
    next->put(line, 0, 0);
    chunk.store(next, std::memory_order_relaxed);
    state.fetch_add(whenEmpty(*next) - onePlace - (line.size() + 1));
}

std::uint32_t FillingChunk::lines() const noexcept
{
    return LineChunk::linesIn(chunk.load(std::memory_order_relaxed)->bytes) -
           placesIn(state.load(std::memory_order_seq_cst));
}

bool FillingChunk::restart(std::uint32_t lines) noexcept
{
    const std::uint64_t full = whenEmpty(*chunk.load(std::memory_order_relaxed));
    std::uint64_t now = state.load();
    return placesIn(full) - placesIn(now) == lines &&
           state.compare_exchange_strong(now, (now & (closedMark | chunkMask)) | full);
}

std::uint32_t FillingChunk::close() noexcept
{
    const std::uint64_t now = state.load(std::memory_order_relaxed); // others change neither mark nor number
    const std::uint64_t last = state.exchange((now & closedMark) | ((now + oneChunk) & chunkMask));
    return LineChunk::linesIn(chunk.load(std::memory_order_relaxed)->bytes) - placesIn(last);
}

} // namespace Zyr
