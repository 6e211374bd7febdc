#pragma once

#include "queue/LineBatch.h"
#include "store/AppendFile.h"

#include <cstddef>
#include <cstdint>
#include <system_error>

namespace Zyr {

/// Appends lines to an open file, and keeps count of what is in it.
///
/// Nothing throws between a write and its count: a batch that was written and not counted would be written again.
class LineAppender
{
public:
    struct Written
    {
        std::size_t lines = 0;
        std::error_code error; ///< why it was not all
    };

    explicit LineAppender(CallWatch& itsWatch) noexcept
        : watch(itsWatch)
    {
    }

    /// Goes on with that file; the present one is closed.
    void begin(AppendFile&& opened) noexcept;
    void close() noexcept;

    AppendFile& current() noexcept { return file; }
    const AppendFile& current() const noexcept { return file; }

    /// Counts what is in the file, as it was when last looked at, instead of what went through here.
    void countAll() noexcept;
    /// Does so when others have written or cut the file.
    void countOthers() noexcept;
    std::uint64_t size() const noexcept { return bytes; }

    /// Whether a pipe has taken a line in part only. The same batch, or one that begins with that line, goes on.
    bool isInLine() const noexcept { return partial > 0; }

    struct How
    {
        bool synchronize = false;        ///< what is written, and its name, before it counts as written
        bool mayCutBack = false;         ///< what was not written whole: nobody else does
        const LogPlace* place = nullptr; ///< whose names are synchronized; null: they are of no matter
    };

    /// Appends that many of the batch's lines. Where it fails, nothing of the rest is in the file, or it is in a line
    /// of its own, which ends before the next one.
    Written append(const LineBatch& batch, std::size_t lines, const How& how) noexcept;

private:
    std::error_code synchronize(const LogPlace* place) noexcept;

    CallWatch& watch;
    AppendFile file;
    std::uint64_t bytes = 0;
    std::size_t partial = 0;       ///< bytes of the next line that a pipe took already
    bool endLineFirst = false;     ///< the last line was left without its end
    bool nameSynchronized = false; ///< the name under which the file is found is on the disk
};

} // namespace Zyr
