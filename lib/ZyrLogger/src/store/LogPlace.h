#pragma once

#include "system/Directory.h"

#include <memory>
#include <string>

namespace Zyr {

/// A log file's directory and its name there. The log and the files beside it are reached through that open directory
/// only.
class LogPlace : public Directory
{
public:
    /// Null where the directory cannot be held open; errno tells why.
    static std::shared_ptr<const LogPlace> of(const TrustedPath& path, CallWatch& watch);

    const std::string& name() const noexcept { return logName; }
    /// Name of a hidden file beside the log: ".app.log.next" for "app.log" and ".next".
    std::string hidden(const char* suffix) const { return '.' + logName + suffix; }
    bool isSame(const LogPlace& other) const noexcept;

private:
    LogPlace() = default;

    std::string logName;
};

} // namespace Zyr
