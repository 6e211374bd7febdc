// Following a path to where it leads, under the watch.
#include "system/PathCalls.h"

#include "system/FileCalls.h"
#include "system/Shortage.h"
#include "system/TrustedPath.h"

namespace Zyr::PathCalls {

std::error_code find(TrustedPath& where, const std::string& path, CallWatch& watch) noexcept
{
    return watch([&] { return where.find(path.c_str()); });
}

bool status(const TrustedPath& where, struct stat& found, CallWatch& watch) noexcept
{
    return watch([&] { return where.status(found); }) == 0;
}

std::error_code status(const std::string& path, struct stat& found, CallWatch& watch) noexcept
{
    TrustedPath where;
    const std::error_code error = find(where, path, watch);
    bool known = false;
    if (!error)
        known = status(where, found, watch);
    else if (isShortage(error))
        known = watch([&] { return ::stat(path.c_str(), &found); }) == 0; // links cannot harm a mere comparison
    else
        return error;
    return known ? std::error_code() : lastError();
}

} // namespace Zyr::PathCalls
