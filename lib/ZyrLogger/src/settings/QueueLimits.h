#pragma once

#include <cstddef>

namespace Zyr {

/// How much may wait for the log file, and what happens to a line that finds no room.
struct QueueLimits
{
    enum class Overflow { Wait, Drop };

    static constexpr std::size_t minBytes = std::size_t(64) << 10;
    static constexpr std::size_t maxBytes = std::size_t(1024) << 20;

    std::size_t bytes = std::size_t(8) << 20; ///< of memory that the queue may hold
    Overflow overflow = Overflow::Wait;
};

} // namespace Zyr
