// The texts of the queue's limits.

#include "settings/QueueLimits.h"

#include "settings/ByteSize.h"

namespace Zyr {

using namespace Qt::StringLiterals;

std::optional<std::size_t> QueueLimits::parseBytes(const QString& text)
{
    const auto parsed = parseByteSize(text.toStdString());
    if (!parsed || *parsed < minBytes || *parsed > maxBytes)
        return {};
    return static_cast<std::size_t>(*parsed);
}

std::optional<QueueLimits::Overflow> QueueLimits::parseOverflow(const QString& text)
{
    if (text == "wait"_L1)
        return Overflow::Wait;
    return text == "drop"_L1 ? std::optional(Overflow::Drop) : std::nullopt;
}

} // namespace Zyr
