// Where the lines of a batch lie, and how many of them a number of bytes is.

#include "queue/LineBatch.h"

#include <algorithm>

namespace Zyr {

namespace {

/// The first line of the run whose end is at `bytes` or later, as ends grow with the line.
std::size_t lineReaching(const LineBatch::Run& run, std::uint64_t bytes) noexcept
{
    std::size_t first = 0;
    std::size_t last = run.count;
    while (first < last) {
        const std::size_t middle = first + (last - first) / 2;
        if (run.end(middle) < bytes)
            first = middle + 1;
        else
            last = middle;
    }
    return first;
}

} // namespace

void LineBatch::add(const Run& run) noexcept
{
    all[runs++] = run;
    lineCount += run.count;
    byteCount += run.bytes();
}

std::size_t LineBatch::linesReaching(std::uint64_t bytes) const noexcept
{
    std::size_t lines = 0;
    for (std::size_t i = 0; i < runs; ++i) {
        if (all[i].bytes() >= bytes)
            return lines + (bytes == 0 ? 0 : lineReaching(all[i], bytes) + 1);
        bytes -= all[i].bytes();
        lines += all[i].count;
    }
    return lines;
}

std::size_t LineBatch::linesWithin(std::size_t bytes) const noexcept
{
    std::size_t lines = 0;
    for (std::size_t i = 0; i < runs; ++i) {
        if (all[i].bytes() > bytes)
            return lines + lineReaching(all[i], std::uint64_t(bytes) + 1);
        bytes -= all[i].bytes();
        lines += all[i].count;
    }
    return lines;
}

std::size_t LineBatch::bytesOf(std::size_t lines) const noexcept
{
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < runs && lines > 0; ++i) {
        const std::size_t count = std::min<std::size_t>(lines, all[i].count);
        bytes += all[i].end(count - 1);
        lines -= count;
    }
    return bytes;
}

std::size_t LineBatch::pieces(std::size_t from, std::size_t to, std::span<iovec> result) const noexcept
{
    std::size_t count = 0;
    std::size_t start = 0; // of the run, in the batch
    for (std::size_t i = 0; i < runs && start < to && count < result.size(); ++i) {
        const std::size_t end = start + all[i].bytes();
        if (end > from) {
            const std::size_t first = std::max(from, start);
            result[count++] = {const_cast<char*>(all[i].data) + (first - start), std::min(to, end) - first};
        }
        start = end;
    }
    return count;
}

} // namespace Zyr
