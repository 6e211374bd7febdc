#include "chain/queue/LineQueue.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include <unistd.h>

namespace Zyr {

namespace {

constexpr std::size_t largestUsualChunk = 64 * 1024;
constexpr std::size_t mostSpares = 16;
constexpr std::chrono::microseconds copyingTime{50}; // a thread that copies has lost its processor meanwhile

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
    most = bytes;
    usualChunk = inPages(std::min(bytes / 16, largestUsualChunk));
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
    return space <= LineChunk::spaceIn(usualChunk) ? usualChunk : inPages(LineChunk::bytesFor(space));
}

bool LineQueue::mayGrow(std::size_t bytes) noexcept
{
    trim(); // they are of the wrong size
    return held + bytes <= most || (isEmpty() && announced == 0);
}

bool LineQueue::add(LineChunk* chunk, std::size_t bytes, std::string_view line) noexcept
{
    if (!chunk || filling.appendAnyway(line)) { // others may have made room meanwhile
        takeBack(chunk, bytes);
    } else {
        announced -= bytes;
        link(chunk, line);
    }
    return chunk;
}

void LineQueue::takeBack(LineChunk* chunk, std::size_t bytes) noexcept
{
    announced -= bytes;
    if (chunk)
        keep(chunk);
    else
        held -= bytes;
}

void LineQueue::link(LineChunk* chunk, std::string_view line) noexcept
{
    close();
    if (tail && tail == head && tail->taken == tail->written)
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
    tail->written = filling.close();
    closedLines += tail->written;
}

std::uint32_t LineQueue::linesOf(const LineChunk& chunk) const noexcept
{
    return &chunk == tail && !closed ? filling.lines() : chunk.written;
}

LineBatch LineQueue::front(std::size_t mostBytes) const noexcept
{
    LineBatch batch;
    for (LineChunk* chunk = head; chunk && !batch.isFull(); chunk = chunk->next) {
        const std::uint32_t lines = linesOf(*chunk);
        const std::uint32_t there = chunk->linesThere(chunk->taken, lines);
        const LineBatch::Run run = {chunk->data() + chunk->begin, chunk->ends() + chunk->taken, chunk->begin, there};
        if (batch.lines() > 0 && batch.bytes() + run.bytes() > mostBytes)
            break;
        if (there > 0)
            batch.add(run);
        if (chunk->taken + there < lines)
            break;
    }
    return batch;
}

void LineQueue::pop(std::size_t count) noexcept
{
    closedLines -= count;
    while (count > 0) {
        LineChunk& chunk = *head;
        const auto leave = static_cast<std::uint32_t>(std::min<std::size_t>(count, linesOf(chunk) - chunk.taken));
        count -= leave;
        chunk.taken += leave;
        chunk.begin = chunk.ends()[chunk.taken - 1];
        if (chunk.taken < linesOf(chunk))
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
            chunk->forget(chunk->taken);
            if (filling.restart(chunk->taken)) {
                closedLines += chunk->taken;
                chunk->begin = chunk->taken = 0;
            }
            return;
        }
        close();
        if (chunk->taken < chunk->written)
            return;
    }
    head = chunk->next;
    if (!head)
        tail = nullptr;
    linked -= chunk->bytes;
    chunk->forget(chunk->written);
    chunk->begin = chunk->taken = chunk->written = 0;
    keep(chunk);
}

void LineQueue::keep(LineChunk* chunk) noexcept
{
    const bool isSpare = chunk->bytes == usualChunk && spares < mostSpares;
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
    for (LineChunk* chunk = head; chunk; chunk = chunk->next) {
        while (chunk->taken + chunk->linesThere(chunk->taken, linesOf(*chunk)) < linesOf(*chunk))
            std::this_thread::sleep_for(copyingTime);
    }
    pop(size());
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
