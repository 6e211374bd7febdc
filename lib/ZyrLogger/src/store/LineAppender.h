#pragma once

#include "queue/LineBatch.h"
#include "store/AppendFile.h"

#include <cstddef>
#include <cstdint>
#include <system_error>

namespace Zyr {

/// Appends lines to an open file, and keeps count of its bytes.
///
/// Nothing throws between a write and its count: a batch that was written and not counted would be written again.
class LineAppender
{
public:
    struct Written
    {
        std::size_t lines = 0;
        std::error_code error; ///< why not all were written
    };

    explicit LineAppender(CallWatch& itsWatch) noexcept
        : watch(itsWatch)
    {
    }

    /// Continues with that file; the current one is closed.
    void begin(AppendFile&& opened) noexcept;
    void close() noexcept;

    AppendFile& current() noexcept { return file; }
    const AppendFile& current() const noexcept { return file; }

    /// Takes the size from the last look at the file, rather than from what was appended here.
    void countAll() noexcept;
    /// Does so if others have written to the file or truncated it.
    void countOthers() noexcept;
    std::uint64_t size() const noexcept { return bytes; }

    /// Whether a pipe has taken only a part of a line. The next batch must begin with that line.
    bool isInLine() const noexcept { return partial > 0; }

    struct How
    {
        bool synchronize = false;        ///< lines count as written once they and the file's name are on the disk
        bool mayCutBack = false;         ///< an incomplete line; for the first writer only
        const LogPlace* place = nullptr; ///< the directory to synchronize; null: none
    };

    /// Appends that many of the batch's lines. On failure, nothing of the rest is in the file, or only a part of a
    /// line, which is ended before the next line.
    Written append(const LineBatch& batch, std::size_t lines, const How& how) noexcept;

private:
    std::error_code synchronize(const LogPlace* place) noexcept;

    CallWatch& watch;
    AppendFile file;
    std::uint64_t bytes = 0;
    std::size_t partial = 0;       ///< bytes of the next line that a pipe has already taken
    bool endLineFirst = false;     ///< the last line lacks its line end
    bool nameSynchronized = false; ///< the directory entry is on the disk
};

} // namespace Zyr
