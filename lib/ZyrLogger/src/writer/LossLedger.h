#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Zyr {

/// The records that were lost and that no line in the file tells of yet. Losing one needs no memory, whose lack may be
/// the reason.
class LossLedger
{
public:
    static constexpr std::size_t maxReason = 256; ///< bytes

    LossLedger() { lastReason.reserve(maxReason); }

    void lose(std::string_view reason) noexcept
    {
        ++lost;
        lastReason = reason.substr(0, maxReason);
    }

    bool isEmpty() const noexcept { return lost == 0; }
    std::uint64_t count() const noexcept { return lost; }

    /// The line that tells of the loss is to follow that many written ones, unless it has its place already.
    void schedule(std::uint64_t line) noexcept
    {
        if (lost > 0 && !dueAfter)
            dueAfter = line;
    }
    /// It gets another place.
    void postpone() noexcept { dueAfter.reset(); }
    bool isDue(std::uint64_t written) const noexcept { return dueAfter && written >= *dueAfter; }

    /// What the line says.
    std::string text() const
    {
        return std::to_string(lost) + (lost == 1 ? " record lost: " : " records lost: ") + lastReason;
    }

    /// A line that tells of so many is in the file.
    void recorded(std::uint64_t records) noexcept
    {
        lost -= lost < records ? lost : records; // fewer when they were given up meanwhile
        dueAfter.reset();
    }

    /// No line in the file will tell of them. Returns how many.
    std::uint64_t giveUp() noexcept
    {
        dueAfter.reset();
        return std::exchange(lost, 0);
    }

private:
    std::uint64_t lost = 0;
    std::string lastReason; ///< in memory that it keeps
    std::optional<std::uint64_t> dueAfter;
};

} // namespace Zyr
