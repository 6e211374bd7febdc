#pragma once

#include "base/ShortCopy.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace Zyr {

/// Bytes of a line that is being put together. The usual line fits into the object itself and costs no allocation.
///
/// It lives on the caller's stack and not in a thread_local, since static objects log after the main thread's
/// thread_locals are gone. What enlarges it throws std::bad_alloc and leaves the line as it was.
class LineBuffer
{
public:
    LineBuffer() noexcept = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer()
    {
        if (begin != own)
            delete[] begin;
    }

    std::string_view view() const noexcept { return {begin, std::size_t(end - begin)}; }
    void clear() noexcept { end = begin; }

    void append(std::string_view text)
    {
        char* const to = room(text.size());
        copyShort(to, text.data(), text.size());
        end = to + text.size();
    }

    /// The end of the line, with at least `size` bytes free behind it.
    char* room(std::size_t size)
    {
        if (std::size_t(limit - end) < size)
            enlarge(size);
        return end;
    }

    /// Takes what was written to room() into the line, up to `newEnd`.
    void extendTo(char* newEnd) noexcept { end = newEnd; }

private:
    void enlarge(std::size_t size)
    {
        const std::size_t used = view().size();
        const std::size_t capacity = std::max(used + size, 2 * used);
        char* const larger = new char[capacity];
        std::memcpy(larger, begin, used);
        if (begin != own)
            delete[] begin;
        begin = larger;
        end = begin + used;
        limit = begin + capacity;
    }

    char own[1024]; // not initialised: that would cost more than formatting does
    char* begin = own;
    char* end = own;
    char* limit = own + sizeof own;
};

} // namespace Zyr
