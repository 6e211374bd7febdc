#pragma once

#include "base/Mutex.h"
#include "line/LinePattern.h"

#include <atomic>

namespace Zyr {

/// The current pattern, and all that were before. It may outlive its formatter, for threads that still format.
///
/// A pattern that was replaced stays until the end, since a thread may be in it: reading takes no lock and counts no
/// reference. One that comes back is found again, so that reloads between the same few do not take memory.
class LinePatterns
{
public:
    LinePatterns();
    LinePatterns(const LinePatterns&) = delete;
    LinePatterns& operator=(const LinePatterns&) = delete;
    ~LinePatterns();

    const LinePattern& current() const noexcept { return currentEntry.load(std::memory_order_acquire)->pattern; }

    /// Replaces the pattern by one whose source is the current one's after `change`. Where that throws or the pattern
    /// cannot be compiled, nothing changes.
    template <typename Change>
    void replace(Change change) ZYR_EXCLUDES(mutex)
    {
        const Guard guard(mutex);
        LinePattern::Source source = current().source();
        change(source);
        makeCurrent(std::move(source));
    }

    /// For the child of a fork, where a thread that is not there may have held the mutex.
    void afterForkInChild() noexcept;

private:
    struct Entry
    {
        LinePattern pattern;
        const Entry* const next;
    };

    void makeCurrent(LinePattern::Source source) ZYR_REQUIRES(mutex);

    // Both are read without the mutex, which keeps those apart that change them.
    std::atomic<const Entry*> newestEntry; ///< of a list that a fork cannot catch half changed
    std::atomic<const Entry*> currentEntry;
    Mutex mutex;
};

} // namespace Zyr
