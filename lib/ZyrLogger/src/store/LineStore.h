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
/// The calls that throw are those that need memory; each may be repeated then. Whatever may hang goes through the
/// CallWatch, or the end of the logger waits for it for ever. isInLine() and upkeep() make no system calls: callers'
/// lines wait for them.
class LineStore
{
public:
    using Written = LineAppender::Written;

    virtual ~LineStore() = default;

    /// What is asked for between two writes.
    struct Change
    {
        std::optional<FileSettings> settings; ///< another path takes effect with the next write
        std::optional<AppendFile> opened;     ///< to go on with: opened elsewhere, under the path of the settings
        bool beginAnew = false;               ///< with `opened`: rotates before the next line
        bool lookAgain = false;               ///< whether the file is still the one under its path
    };

    /// Takes out of `change` what is done. After an exception the rest is still in it, to be applied again.
    virtual void apply(Change& change) = 0;

    /// Appends lines from the batch's beginning, as many as the store takes now. Where it fails, nothing of the rest is
    /// in the file, or it is in a line of its own. Few lines and no error: the next write goes on.
    virtual Written write(const LineBatch& batch) = 0;

    /// Whether the last write ended within a line, which the next batch has to begin with.
    virtual bool isInLine() const noexcept = 0;

    /// Work in the background: none now, some that yields to lines, or some that goes before the next lines.
    enum class Upkeep { None, Yields, GoesFirst };
    virtual Upkeep upkeep() const noexcept = 0;
    /// A slice of it, of a few milliseconds.
    virtual void keepUp() noexcept = 0;

    virtual void close() noexcept = 0;
};

/// Makes a store whose system calls go through the watch, which outlives it.
using MakeStore = std::function<std::unique_ptr<LineStore>(CallWatch& watch)>;

} // namespace Zyr
