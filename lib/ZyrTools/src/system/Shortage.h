#pragma once

#include <system_error>

namespace Zyr {

/// Whether a call failed for want of descriptors or memory, and so perhaps not for long.
inline bool isShortage(const std::error_code& error) noexcept
{
    return error == std::errc::too_many_files_open || error == std::errc::too_many_files_open_in_system ||
           error == std::errc::not_enough_memory;
}

} // namespace Zyr
