#pragma once

#include <cerrno>
#include <type_traits>

namespace Zyr {

/// Repeats a system call while it fails with EINTR. Not for close(), which has closed the file even then.
template <typename Call>
auto retried(Call call)
{
    for (;;) {
        auto result = call();
        bool failed = false;
        if constexpr (std::is_pointer_v<decltype(result)>)
            failed = result == nullptr;
        else if constexpr (std::is_integral_v<decltype(result)>)
            failed = result == -1;
        if (!failed || errno != EINTR)
            return result;
    }
}

} // namespace Zyr
