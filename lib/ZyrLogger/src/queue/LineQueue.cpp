// The list of chunks: how it grows, is consumed and gives memory back.

#include "queue/LineQueue.h"

#include <algorithm>
#include <cassert>
#include <limits>

#include <unistd.h>

namespace Zyr {

namespace {

constexpr std::size_t maxUsualChunk = 64 * 1024;
constexpr std::size_t maxSpares = 16;

std::size_t inPages(std::size_t bytes) noexcept
{
    static const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

} // namespace

LineQueue::~LineQueue()
{
    trim();
    LineChunk::unmap(takeFreed());
    LineChunk::unmap(head);
}

void LineQueue::setBound(std::size_t bytes) noexcept
{
    limit = bytes;
    usualChunk = inPages(std::min(bytes / 16, maxUsualChunk));
    trim(); // they may have another size
}

bool LineQueue::appendLocked(std::string_view line) noexcept
{
    if (filling.appendAnyway(line))
        return true;
    if (!spare || chunkBytes(line) != usualChunk)
        return false;
    LineChunk* const chunk = spare;
    spare = chunk->next;
    --spares;
    link(chunk, line);
    return true;
}

std::size_t LineQueue::chunkBytes(std::string_view line) const noexcept
{
    const std::size_t space = line.size() + 1;
    if (space <= LineChunk::spaceIn(usualChunk))
        return usualChunk;
    std::size_t bytes = inPages(sizeof(LineChunk) + space);
    while (LineChunk::spaceIn(bytes) < space) // for the table, which is larger in a larger chunk
        bytes = inPages(bytes + 1);
    return bytes;
}

bool LineQueue::mayGrow(std::size_t bytes) noexcept
{
    trim(); // they are of the wrong size
    return held + bytes <= limit || !isUsed();
}

bool LineQueue::add(LineChunk* chunk, std::size_t bytes, std::string_view line) noexcept
{
    assert(reserved >= bytes && held >= bytes);
    if (!chunk || filling.appendAnyway(line)) { // others may have made room meanwhile
        cancel(chunk, bytes);
    } else {
        reserved -= bytes;
        link(chunk, line);
    }
    return chunk;
}

void LineQueue::cancel(LineChunk* chunk, std::size_t bytes) noexcept
{
    assert(reserved >= bytes && held >= bytes);
    reserved -= bytes;
    if (chunk)
        keep(chunk);
    else
        held -= bytes;
}

void LineQueue::link(LineChunk* chunk, std::string_view line) noexcept
{
    close();
    if (tail && tail == head && tail->consumed == tail->lines)
        leaveFirst();
    chunk->next = nullptr;
    (tail ? tail->next : head) = chunk;
    linked += chunk->bytes;
    tail = chunk;
    filling.open(chunk, line);
    closed = false;
}

void LineQueue::close() noexcept
{
    if (closed)
        return;
    closed = true;
    tail->lines = filling.close();
    closedLines += tail->lines;
}

std::uint32_t LineQueue::linesOf(const LineChunk& chunk) const noexcept
{
    return &chunk == tail && !closed ? filling.lines() : chunk.lines;
}

LineBatch LineQueue::front(std::size_t maxBytes) const noexcept
{
    LineBatch batch;
    for (LineChunk* chunk = head; chunk && !batch.isFull(); chunk = chunk->next) {
        const std::uint32_t lines = linesOf(*chunk);
        const std::uint32_t committed = chunk->committedLines(lines);
        assert(chunk->consumed <= committed && committed <= lines);
        const LineBatch::Run run = {chunk->data() + chunk->begin, chunk->ends() + chunk->consumed, chunk->begin,
                                    committed - chunk->consumed};
        if (batch.lines() > 0 && batch.bytes() + run.bytes() > maxBytes)
            break;
        if (run.count > 0)
            batch.add(run);
        if (committed < lines)
            break;
    }
    return batch;
}

void LineQueue::pop(std::size_t count) noexcept
{
    assert(count <= size());
    closedLines -= count;
    while (count > 0) {
        LineChunk& chunk = *head;
        assert(chunk.consumed < chunk.committed); // only what front() has shown
        const auto leave = static_cast<std::uint32_t>(std::min<std::size_t>(count, linesOf(chunk) - chunk.consumed));
        count -= leave;
        chunk.consumed += leave;
        chunk.begin = chunk.ends()[chunk.consumed - 1];
        if (chunk.consumed < linesOf(chunk))
            return;
        leaveFirst();
    }
}

/// All its lines have left it.
void LineQueue::leaveFirst() noexcept
{
    LineChunk* const chunk = head;
    if (chunk == tail && !closed) {
        if (chunk->bytes == usualChunk) {
            chunk->forget(chunk->consumed);
            if (filling.restart(chunk->consumed)) {
                closedLines += chunk->consumed;
                chunk->begin = chunk->consumed = chunk->committed = 0;
            }
            return;
        }
        close();
        if (chunk->consumed < chunk->lines)
            return;
    }
    head = chunk->next;
    if (!head)
        tail = nullptr;
    linked -= chunk->bytes;
    chunk->forget(chunk->lines);
    chunk->begin = chunk->consumed = chunk->committed = chunk->lines = 0;
    keep(chunk);
}

void LineQueue::keep(LineChunk* chunk) noexcept
{
    const bool isSpare = chunk->bytes == usualChunk && spares < maxSpares;
    LineChunk*& list = isSpare ? spare : freed;
    chunk->next = list;
    list = chunk;
    if (isSpare)
        ++spares;
    else
        held -= chunk->bytes;
}

void LineQueue::clear() noexcept
{
    constexpr std::size_t all = std::numeric_limits<std::size_t>::max();
    while (const std::size_t lines = front(all).lines())
        pop(lines);
}

void LineQueue::trim() noexcept
{
    while (spare) {
        LineChunk* const chunk = spare;
        spare = chunk->next;
        chunk->next = freed;
        freed = chunk;
        held -= chunk->bytes;
    }
    spares = 0;
}

LineChunk* LineQueue::takeFreed() noexcept
{
    LineChunk* const list = freed;
    freed = nullptr;
    return list;
}

} // namespace Zyr
