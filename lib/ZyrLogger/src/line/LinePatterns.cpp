#include "line/LinePatterns.h"

#include <new>
#include <utility>

namespace Zyr {

LinePatterns::LinePatterns()
    : newest(new Entry{LinePattern({}), nullptr})
    , current(newest.load())
{
}

LinePatterns::~LinePatterns()
{
    for (const Entry* entry = newest.load(); entry;)
        delete std::exchange(entry, entry->next);
}

void LinePatterns::enforce(LinePattern::Source source)
{
    const Entry* entry = newest.load(std::memory_order_relaxed);
    while (entry && entry->pattern.source() != source)
        entry = entry->next;
    if (!entry) {
        entry = new Entry{LinePattern(std::move(source)), newest.load(std::memory_order_relaxed)};
        newest.store(entry, std::memory_order_release);
    }
    current.store(entry, std::memory_order_release);
}

void LinePatterns::afterForkInChild() noexcept
{
    new (&mutex) std::mutex;
}

} // namespace Zyr
