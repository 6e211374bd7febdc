// The list of a logger's patterns, which only grows.

#include "line/LinePatterns.h"

#include <new>
#include <utility>

namespace Zyr {

LinePatterns::LinePatterns()
    : newestEntry(new Entry{LinePattern({}), nullptr})
    , currentEntry(newestEntry.load())
{
}

LinePatterns::~LinePatterns()
{
    for (const Entry* entry = newestEntry.load(); entry;)
        delete std::exchange(entry, entry->next);
}

void LinePatterns::makeCurrent(LinePattern::Source source)
{
    const Entry* entry = newestEntry.load(std::memory_order_relaxed);
    while (entry && entry->pattern.source() != source)
        entry = entry->next;
    if (!entry) {
        entry = new Entry{LinePattern(std::move(source)), newestEntry.load(std::memory_order_relaxed)};
        newestEntry.store(entry, std::memory_order_release);
    }
    currentEntry.store(entry, std::memory_order_release);
}

void LinePatterns::afterForkInChild() noexcept
{
    new (&mutex) Mutex;
}

} // namespace Zyr
