// The memory of a chunk, and a line on its way into it.

#include "queue/LineChunk.h"

#include "base/ShortCopy.h"
#include "base/VectorRegisters.h"

#include <atomic>
#include <cstring>

#include <sys/mman.h>

namespace Zyr {

LineChunk* LineChunk::map(std::size_t bytes, bool atOnce) noexcept
{
    const int flags = MAP_PRIVATE | MAP_ANONYMOUS | (atOnce ? MAP_POPULATE : 0);
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    auto* const chunk = static_cast<LineChunk*>(memory); // all zero, as the system gives it
    chunk->bytes = bytes;
    return chunk;
}

void LineChunk::unmap(LineChunk* list) noexcept
{
    while (list) {
        LineChunk* const next = list->next;
        ::munmap(list, list->bytes);
        list = next;
    }
}

void LineChunk::put(std::string_view line, std::uint32_t number, std::size_t offset) noexcept
{
    cleanVectorRegisters();
    char* const place = data() + offset;
    copyShort(place, line.data(), line.size());
    place[line.size()] = '\n';
    const auto end = static_cast<std::uint32_t>(offset + line.size() + 1);
    std::atomic_ref(ends()[number]).store(end, std::memory_order_release);
}

std::uint32_t LineChunk::committedLines(std::uint32_t reserved) noexcept
{
    while (committed < reserved && std::atomic_ref(ends()[committed]).load(std::memory_order_acquire) != 0)
        ++committed;
    return committed;
}

void LineChunk::forget(std::uint32_t count) noexcept
{
    std::memset(ends(), 0, count * sizeof(std::uint32_t));
}

} // namespace Zyr
