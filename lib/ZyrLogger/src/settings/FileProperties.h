#pragma once

#include "settings/FileSettings.h"

#include <map>
#include <string>

namespace Zyr {

/// The file channel's properties, as texts and parsed.
///
/// Names, syntax, defaults and exceptions are those of Poco::FileChannel, with these differences: what it documents but
/// refuses is legal ("5" as purgeAge, "mon,:35"); what it misreads or never returns from is refused, as are wrong
/// `times` at once; and purgeAge and purgeCount are two rules, of which "none" or an empty text disables its own.
class FileProperties
{
public:
    /// Throws a Poco::Exception for what it refuses, and then has changed nothing.
    void set(const std::string& name, const std::string& value);

    /// The text that was set; "true" or "false" for switches, "none" for a purge rule that was disabled.
    std::string get(const std::string& name) const;

    const FileSettings& settings() const { return parsed; }

private:
    FileSettings parsed;
    std::map<std::string, std::string> texts; ///< of what was set
};

} // namespace Zyr
