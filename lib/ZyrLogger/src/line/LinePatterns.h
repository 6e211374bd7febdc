#pragma once

#include "line/LinePattern.h"

#include <atomic>
#include <mutex>

namespace Zyr {

/// The pattern in force, and all that were before. It may outlive its formatter, for threads that still format.
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

    const LinePattern& inForce() const noexcept { return current.load(std::memory_order_acquire)->pattern; }

    /// Puts another pattern in force, `change` being called with the source of the present one. Where it throws or the
    /// pattern cannot be compiled, nothing changes.
    template <typename Change>
    void replace(Change change)
    {
        const std::lock_guard lock(mutex);
        LinePattern::Source source = inForce().source();
        change(source);
        enforce(std::move(source));
    }

    /// For the child of a fork, where a thread that is not there may have held the mutex.
    void afterForkInChild() noexcept;

private:
    struct Entry
    {
        LinePattern pattern;
        const Entry* const next;
    };

    void enforce(LinePattern::Source source);

    std::mutex mutex;                 // for writers only
    std::atomic<const Entry*> newest; // a list that a fork cannot catch half changed
    std::atomic<const Entry*> current;
};

} // namespace Zyr
