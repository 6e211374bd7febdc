#pragma once

#include "chain/queue/LineBatch.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zyr {

/// Lines on their way to the worker thread, bounded by the memory that they hold, all of it counted.
///
/// They lie in chunks, each the bytes of its lines from the front and the offsets of their ends from the back, so that
/// a chunk is written as it lies. Not thread-safe: its owner's lock guards it. Chunks are mapped and unmapped by the
/// owner outside that lock (Chunk::map(), takeFreed()), since both are system calls.
class LineQueue
{
public:
    /// A piece of memory for lines. The system gives it page by page as it is used, or at once, which takes less time
    /// in all; and gets it back at once.
    struct Chunk
    {
        /// Null when there is no memory.
        static Chunk* map(std::size_t bytes, bool atOnce) noexcept;
        /// Unmaps a list of chunks.
        static void unmap(Chunk* list) noexcept;

        char* data() noexcept { return reinterpret_cast<char*>(this + 1); }
        std::uint32_t* lastEnd() noexcept;

        Chunk* next;
        std::size_t bytes;     ///< of the mapping, this header and the ends included
        std::uint32_t begin;   ///< offset of the first line that is still queued
        std::uint32_t used;    ///< offset behind the last one
        std::uint32_t taken;   ///< number of lines that have left
        std::uint32_t written; ///< number of lines ever added
    };

    static constexpr std::size_t fillingChunks = 5; ///< of the sixteen or more usual ones that the bound allows
    static constexpr std::size_t longestLine = std::size_t(1) << 30;

    explicit LineQueue(std::size_t itsBound) noexcept { setBound(itsBound); }
    ~LineQueue();
    LineQueue(const LineQueue&) = delete;
    LineQueue& operator=(const LineQueue&) = delete;

    /// In bytes. What is queued already stays.
    void setBound(std::size_t bytes) noexcept;
    std::size_t bound() const noexcept { return most; }

    bool isEmpty() const noexcept { return lines == 0; }
    std::size_t size() const noexcept { return lines; }
    /// Whether they have the better part of a write's usual bytes together, or of the bound.
    bool isFilling() const noexcept { return linked > fillingChunks * usualChunk; }

    /// Adds the line and a line end. False when there is no room in the last chunk: then one more is needed, of
    /// chunkBytes(), if mayGrow().
    bool append(std::string_view line) noexcept;
    std::size_t chunkBytes(std::string_view line) const noexcept;
    bool mayGrow(std::size_t bytes) noexcept;

    /// Counts the chunk before it is mapped, so that several threads that map at a time keep the bound together.
    void announce(std::size_t bytes) noexcept
    {
        announced += bytes;
        held += bytes;
    }
    /// Adds the chunk that was announced; a null one takes the announcement back.
    void add(Chunk* chunk, std::size_t bytes) noexcept;

    /// The first lines, of at most `mostBytes` together unless the first chunk alone has more. They stay where they
    /// are until pop(), also when more are appended meanwhile.
    LineBatch front(std::size_t mostBytes) const noexcept;
    void pop(std::size_t count) noexcept;

    /// Gives up spare chunks too.
    void trim() noexcept;
    /// The chunks that are no longer needed, as a list for Chunk::unmap().
    Chunk* takeFreed() noexcept;

private:
    bool hasRoom(std::size_t bytes) const noexcept;
    bool useSpare() noexcept;
    void link(Chunk* chunk) noexcept;
    void drop(Chunk* chunk) noexcept;

    std::size_t most = 0;
    std::size_t usualChunk = 0;
    std::size_t held = 0; ///< spare chunks included
    std::size_t announced = 0;
    std::size_t lines = 0;
    Chunk* head = nullptr;
    Chunk* tail = nullptr;
    Chunk* spare = nullptr;
    std::size_t spares = 0;
    std::size_t linked = 0; ///< bytes of the chunks from `head` to `tail`
    Chunk* freed = nullptr;
};

} // namespace Zyr
