#pragma once

#include <cerrno>
#include <system_error>

namespace Zyr {

/// The value of errno.
inline std::error_code lastError() noexcept
{
    return {errno, std::system_category()};
}

/// Whether a call failed for lack of descriptors or memory, which may soon pass.
inline bool isShortage(const std::error_code& error) noexcept
{
    return error == std::errc::too_many_files_open || error == std::errc::too_many_files_open_in_system ||
           error == std::errc::not_enough_memory;
}

} // namespace Zyr
