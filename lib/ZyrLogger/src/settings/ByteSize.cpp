// Sizes of files and of memory, as settings give them.

#include "settings/ByteSize.h"

#include "settings/Quantity.h"

namespace Zyr {

std::optional<std::uint64_t> parseByteSize(std::string_view text)
{
    const std::optional<Quantity> size = Quantity::parse(text);
    if (!size || !size->number)
        return {};
    const int shift = size->unit == "M" ? 20 : size->unit == "K" ? 10 : 0;
    if ((shift == 0 && !size->unit.empty()) || *size->number > UINT64_MAX >> shift)
        return {};
    return *size->number << shift;
}

} // namespace Zyr
