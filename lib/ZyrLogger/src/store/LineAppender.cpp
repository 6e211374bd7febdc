// Appends and handles incomplete writes: what is cut back, what is continued, and which torn line is ended first.

#include "store/LineAppender.h"

#include <cassert>
#include <utility>

namespace Zyr {

void LineAppender::begin(AppendFile&& opened) noexcept
{
    close();
    file = std::move(opened);
}

void LineAppender::close() noexcept
{
    file.close(watch);
    bytes = 0;
    partial = 0;
    endLineFirst = false;
    nameSynchronized = false;
}

void LineAppender::countAll() noexcept
{
    bytes = std::uint64_t(file.lastStatus().st_size);
    endLineFirst = !file.endsInLine(watch);
}

void LineAppender::countOthers() noexcept
{
    if (file.isRegular() && std::uint64_t(file.lastStatus().st_size) != bytes)
        countAll();
}

LineAppender::Written LineAppender::append(const LineBatch& batch, std::size_t lines, const How& how) noexcept
{
    assert(file.isOpen());
    assert(partial == 0 || !file.isRegular());
    if (endLineFirst) {
        if (const std::error_code error = file.endLine(watch))
            return {0, error};
        endLineFirst = false;
        ++bytes;
    }
    const AppendFile::Appended appended = file.append(batch, partial, batch.bytesOf(lines), watch);
    const std::size_t done = partial + appended.bytes;
    Written result{batch.linesWithin(done), appended.error};
    assert(result.lines <= lines);
    std::size_t keep = batch.bytesOf(result.lines);
    if (!file.isRegular()) {
        partial = done - keep;
        // The part of a line that the pipe took is gone with its reader; the next reader gets the whole line.
        if (result.error && result.error != std::errc::resource_unavailable_try_again)
            close();
        return result;
    }

    const bool inLine = done > keep;
    if (how.synchronize && result.lines > 0) {
        if (const std::error_code error = synchronize(how.place)) {
            result = {0, error};
            keep = 0;
        }
    }
    bytes += keep;
    if (keep < done && !(how.mayCutBack && file.cutBack(done - keep, watch))) {
        endLineFirst = inLine;
        bytes += done - keep;
    }
    return result;
}

/// Succeeds without the name if the directory is unreadable or no descriptor is left: no reason to hold back records.
std::error_code LineAppender::synchronize(const LogPlace* place) noexcept
{
    if (const std::error_code error = file.synchronize(watch))
        return error;
    if (nameSynchronized || !place)
        return {};
    const std::error_code error = place->synchronize(watch);
    nameSynchronized = !error;
    const bool unreadable = error == std::errc::permission_denied || error == std::errc::too_many_files_open ||
                            error == std::errc::too_many_files_open_in_system;
    return unreadable ? std::error_code() : error;
}

} // namespace Zyr
