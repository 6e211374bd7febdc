// Resolving paths under the watch.

#include "system/PathCalls.h"

#include "system/FileCalls.h"
#include "system/SystemError.h"
#include "system/TrustedPath.h"

namespace Zyr::PathCalls {

std::error_code find(TrustedPath& realPath, const std::string& path, CallWatch& watch) noexcept
{
    return watch([&] { return realPath.find(path.c_str()); });
}

bool status(const TrustedPath& realPath, struct stat& found, CallWatch& watch) noexcept
{
    return watch([&] { return realPath.status(found); }) == 0;
}

std::error_code status(const std::string& path, struct stat& found, CallWatch& watch) noexcept
{
    TrustedPath realPath;
    const std::error_code error = find(realPath, path, watch);
    bool known = false;
    if (!error)
        known = status(realPath, found, watch);
    else if (isShortage(error))
        known = watch([&] { return ::stat(path.c_str(), &found); }) == 0; // for a comparison, any link may be followed
    else
        return error;
    return known ? std::error_code() : lastError();
}

} // namespace Zyr::PathCalls
