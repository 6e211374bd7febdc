#include "chain/queue/LineQueue.h"

#include <algorithm>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace Zyr {

namespace {

constexpr std::size_t largestUsualChunk = 64 * 1024;
constexpr std::size_t mostSpares = 16;

std::size_t inPages(std::size_t bytes) noexcept
{
    static const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

void fetchForWriting(const char* memory) noexcept
{
#if defined(__x86_64__)
    // What the builtin becomes here fetches for reading. Processors that do not know this one take it for nothing.
    __asm__ __volatile__("prefetchw %0" : : "m"(*memory));
#else
    __builtin_prefetch(memory, 1);
#endif
}

/// Has the processor fetch the memory that the next line will fill, which it does while that line is being made.
/// Otherwise whoever queues it waits for that, with the queue locked: the worker thread's core had it last.
void fetchSoon(const char* memory) noexcept
{
    constexpr std::size_t cacheLine = 64;
    constexpr std::size_t usualLine = 256;
    for (std::size_t ahead = 0; ahead < usualLine; ahead += cacheLine)
        fetchForWriting(memory + ahead);
}

} // namespace

LineQueue::Chunk* LineQueue::Chunk::map(std::size_t bytes, bool atOnce) noexcept
{
    const int flags = MAP_PRIVATE | MAP_ANONYMOUS | (atOnce ? MAP_POPULATE : 0);
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    auto* const chunk = static_cast<Chunk*>(memory); // all zero, as the system gives it
    chunk->bytes = bytes;
    return chunk;
}

void LineQueue::Chunk::unmap(Chunk* list) noexcept
{
    while (list) {
        Chunk* const next = list->next;
        ::munmap(list, list->bytes);
        list = next;
    }
}

std::uint32_t* LineQueue::Chunk::lastEnd() noexcept
{
    return reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(this) + bytes) - written;
}

LineQueue::~LineQueue()
{
    trim();
    Chunk::unmap(takeFreed());
    Chunk::unmap(head);
}

void LineQueue::setBound(std::size_t bytes) noexcept
{
    most = bytes;
    usualChunk = inPages(std::min(bytes / 16, largestUsualChunk));
    trim(); // they may have another size
}

bool LineQueue::append(std::string_view line) noexcept
{
    const std::size_t bytes = line.size() + 1;
    if (!hasRoom(bytes) && !(chunkBytes(line) == usualChunk && useSpare()))
        return false;
    char* const place = tail->data() + tail->used;
    std::memcpy(place, line.data(), line.size());
    place[line.size()] = '\n';
    tail->used += static_cast<std::uint32_t>(bytes);
    ++tail->written;
    *tail->lastEnd() = tail->used;
    ++lines;
    fetchSoon(place + bytes);
    return true;
}

bool LineQueue::hasRoom(std::size_t bytes) const noexcept
{
    return tail && tail->bytes - sizeof(Chunk) - tail->used - tail->written * sizeof(std::uint32_t) >=
                       bytes + sizeof(std::uint32_t);
}

bool LineQueue::useSpare() noexcept
{
    if (!spare)
        return false;
    Chunk* const chunk = spare;
    spare = chunk->next;
    --spares;
    link(chunk);
    return true;
}

std::size_t LineQueue::chunkBytes(std::string_view line) const noexcept
{
    const std::size_t needed = sizeof(Chunk) + line.size() + 1 + sizeof(std::uint32_t);
    return needed <= usualChunk ? usualChunk : inPages(needed);
}

bool LineQueue::mayGrow(std::size_t bytes) noexcept
{
    trim(); // they are of the wrong size
    return held + bytes <= most || (isEmpty() && announced == 0);
}

void LineQueue::add(Chunk* chunk, std::size_t bytes) noexcept
{
    announced -= bytes;
    if (chunk)
        link(chunk);
    else
        held -= bytes;
}

void LineQueue::link(Chunk* chunk) noexcept
{
    if (tail && tail == head && tail->taken == tail->written) {
        drop(tail);
        head = tail = nullptr;
    }
    chunk->next = nullptr;
    (tail ? tail->next : head) = chunk;
    linked += chunk->bytes;
    tail = chunk;
}

LineBatch LineQueue::front(std::size_t mostBytes) const noexcept
{
    LineBatch batch;
    for (Chunk* chunk = head; chunk && !batch.isFull(); chunk = chunk->next) {
        const std::size_t bytes = chunk->used - chunk->begin;
        if (batch.lines() > 0 && batch.bytes() + bytes > mostBytes)
            break;
        if (bytes > 0)
            batch.add({chunk->data() + chunk->begin, chunk->lastEnd() + (chunk->written - chunk->taken - 1),
                       chunk->begin, chunk->written - chunk->taken});
    }
    return batch;
}

void LineQueue::pop(std::size_t count) noexcept
{
    lines -= count;
    while (count > 0) {
        Chunk& chunk = *head;
        const auto left = chunk.written - chunk.taken;
        if (count < left) {
            chunk.taken += static_cast<std::uint32_t>(count);
            chunk.begin = *(chunk.lastEnd() + (chunk.written - chunk.taken));
            return;
        }
        count -= left;
        if (head == tail) {
            chunk.begin = chunk.used = chunk.taken = chunk.written = 0;
            if (chunk.bytes == usualChunk)
                return; // filled again from its beginning
            tail = nullptr;
        }
        head = chunk.next;
        drop(&chunk);
    }
}

void LineQueue::drop(Chunk* chunk) noexcept
{
    linked -= chunk->bytes;
    const bool keep = chunk->bytes == usualChunk && spares < mostSpares;
    Chunk*& list = keep ? spare : freed;
    chunk->begin = chunk->used = chunk->taken = chunk->written = 0;
    chunk->next = list;
    list = chunk;
    if (keep)
        ++spares;
    else
        held -= chunk->bytes;
}

void LineQueue::trim() noexcept
{
    while (spare) {
        Chunk* const chunk = spare;
        spare = chunk->next;
        chunk->next = freed;
        freed = chunk;
        held -= chunk->bytes;
    }
    spares = 0;
}

LineQueue::Chunk* LineQueue::takeFreed() noexcept
{
    Chunk* const list = freed;
    freed = nullptr;
    return list;
}

} // namespace Zyr
