#pragma once

#include <QtCore/QString>

#include <cstddef>
#include <optional>

namespace Zyr {

/// How much memory the lines that wait to be written may take, and what happens to one that finds no room.
struct QueueLimits
{
    enum class Overflow { Wait, Drop };

    static constexpr std::size_t minBytes = std::size_t(64) << 10;
    static constexpr std::size_t maxBytes = std::size_t(1024) << 20;

    std::size_t bytes = std::size_t(8) << 20; ///< of memory that the queue may take
    Overflow overflow = Overflow::Wait;

    // From the texts of settings; nothing for what is not legal.
    static std::optional<std::size_t> parseBytes(const QString& text);
    static std::optional<Overflow> parseOverflow(const QString& text);
};

} // namespace Zyr
