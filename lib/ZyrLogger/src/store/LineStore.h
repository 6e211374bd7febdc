#pragma once

#include "settings/FileSettings.h"
#include "store/AppendFile.h"
#include "store/LineAppender.h"

#include <functional>
#include <memory>
#include <optional>

namespace Zyr {

class CallWatch;
class LineBatch;

/// What the worker thread writes the lines to. For one thread.
///
/// The functions that are not noexcept may throw std::bad_alloc, and can be repeated then. What may hang goes through
/// the CallWatch, or the end of the logger would wait for it without limit. isInLine() and maintenanceDue() make no
/// system calls, since callers may wait for the lock that is held meanwhile.
class LineStore
{
public:
    using Written = LineAppender::Written;

    virtual ~LineStore() = default;

    /// Requests, to be applied between two writes.
    struct Change
    {
        std::optional<FileSettings> settings; ///< another path takes effect with the next write
        std::optional<AppendFile> opened;     ///< the file to continue with, opened under the path of the settings
        bool rotateFirst = false;             ///< with `opened`: rotate before the next line
        bool lookAgain = false;               ///< check whether the path still leads to the file
    };

    /// Removes from `change` what is done. After an exception the rest is still in it, to be applied again.
    virtual void apply(Change& change) = 0;

    /// Appends lines from the batch's beginning, as many as the store takes now. On failure, nothing of the rest is in
    /// the file, or only a part of a line, which is ended before the next line. Fewer lines without an error: call
    /// again.
    virtual Written write(const LineBatch& batch) = 0;

    /// Whether the last write ended within a line. The next batch must begin with that line.
    virtual bool isInLine() const noexcept = 0;

    /// Background work: none now, some that yields to lines, or some that must precede the next lines.
    enum class Maintenance { None, Yields, GoesFirst };
    virtual Maintenance maintenanceDue() const noexcept = 0;
    /// A slice of it, of a few milliseconds.
    virtual void maintain() noexcept = 0;

    virtual void close() noexcept = 0;
};

/// Makes a store whose system calls go through the watch, which outlives it.
using MakeStore = std::function<std::unique_ptr<LineStore>(CallWatch& watch)>;

} // namespace Zyr
