#pragma once

#include "queue/FillingChunk.h"
#include "queue/LineBatch.h"
#include "queue/LineChunk.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zyr {

/// Lines on their way to the worker thread, bounded by the memory that they hold, all of it counted.
///
/// They lie in chunks. Any thread adds lines to the last one without a lock; all the rest is guarded by the owner's.
/// Chunks are mapped and unmapped by the owner outside that lock (LineChunk::map(), takeFreed()), since both are system
/// calls.
class LineQueue
{
public:
    static constexpr std::size_t fillingChunks = 5; ///< of the sixteen or more usual ones that the bound allows
    static constexpr std::size_t maxLine = std::size_t(1) << 30;

    explicit LineQueue(std::size_t itsBound) noexcept { setBound(itsBound); }
    ~LineQueue();
    LineQueue(const LineQueue&) = delete;
    LineQueue& operator=(const LineQueue&) = delete;

    /// Adds the line and a line end, without the lock and from any thread. False when there is no room in the last
    /// chunk, or the fast path is closed.
    bool append(std::string_view line) noexcept { return filling.append(line); }

    /// Whether append() takes lines: the fast path, closed in the beginning.
    void openFastPath(bool isOpen) noexcept { filling.openFastPath(isOpen); }
    /// The same with the lock. False when one more chunk is needed, of chunkBytes(), if mayGrow().
    bool appendLocked(std::string_view line) noexcept;
    std::size_t chunkBytes(std::string_view line) const noexcept;
    bool mayGrow(std::size_t bytes) noexcept;

    /// Counts the chunk before it is mapped, so that several threads that map at a time keep the bound together.
    void reserve(std::size_t bytes) noexcept
    {
        reserved += bytes;
        held += bytes;
    }
    /// Adds the line with the chunk that was reserved for it. False if that is null.
    bool add(LineChunk* chunk, std::size_t bytes, std::string_view line) noexcept;
    /// Instead of add().
    void cancel(LineChunk* chunk, std::size_t bytes) noexcept;

    /// In bytes. What is queued already stays.
    void setBound(std::size_t bytes) noexcept;
    std::size_t bound() const noexcept { return limit; }

    bool isEmpty() const noexcept { return size() == 0; }
    /// Whether there are lines, or a chunk for one has been reserved.
    bool isUsed() const noexcept { return !isEmpty() || reserved > 0; }
    /// Those that are just being copied included.
    std::size_t size() const noexcept { return closedLines + (closed ? 0 : filling.lines()); }
    /// Whether they take so much memory that they should be written now, rather than gather further.
    bool isFilling() const noexcept { return linked > fillingChunks * usualChunk; }

    /// The first lines, of at most `maxBytes` together unless the first chunk alone has more, up to one that is just
    /// being copied. They stay where they are until pop(), also when more are appended meanwhile.
    LineBatch front(std::size_t maxBytes) const noexcept;
    void pop(std::size_t count) noexcept;
    /// Drops the lines, up to one that is just being copied.
    void clear() noexcept;

    /// Gives up spare chunks too.
    void trim() noexcept;
    /// The chunks that are no longer needed, as a list for LineChunk::unmap().
    LineChunk* takeFreed() noexcept;

private:
    std::uint32_t linesOf(const LineChunk& chunk) const noexcept;
    void link(LineChunk* chunk, std::string_view line) noexcept;
    void close() noexcept;
    void leaveFirst() noexcept;
    void keep(LineChunk* chunk) noexcept;

    FillingChunk filling; ///< the last one, unless it is closed

    std::size_t limit = 0; ///< bound()
    std::size_t usualChunk = 0;
    std::size_t held = 0; ///< spare chunks included
    std::size_t reserved = 0;
    std::size_t closedLines = 0; ///< of chunks that are no longer filled, less all lines that have left; may wrap
    LineChunk* head = nullptr;
    LineChunk* tail = nullptr;
    bool closed = true; ///< the last chunk
    LineChunk* spare = nullptr;
    std::size_t spares = 0;
    std::size_t linked = 0; ///< bytes of the chunks from `head` to `tail`
    LineChunk* freed = nullptr;
};

} // namespace Zyr
