// The directory of a log file, held open so that the log and its archives stay together wherever it is moved.

#include "store/LogPlace.h"

#include "system/TrustedPath.h"

namespace Zyr {

std::shared_ptr<const LogPlace> LogPlace::of(const TrustedPath& path, CallWatch& watch)
{
    const std::shared_ptr<LogPlace> place(new LogPlace);
    place->logName = path.name();
    return place->hold(path, watch) ? place : nullptr;
}

bool LogPlace::isSame(const LogPlace& other) const noexcept
{
    return Directory::isSame(other) && logName == other.logName;
}

} // namespace Zyr
