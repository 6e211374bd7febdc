#pragma once

#include "settings/FileSettings.h"

#include <string>

namespace Zyr {

/// The file channel's properties: their texts and what they say.
///
/// Names, syntax, defaults and exceptions are those of Poco::FileChannel, with these differences: what it documents but
/// refuses is legal ("5" as purgeAge, "mon,:35"); what it misreads or never comes back from is refused, as are wrong
/// `times` at once; and purgeAge and purgeCount are two rules, of which "none" or an empty text switches off its own.
class FileProperties
{
public:
    /// Throws a Poco::Exception for what it refuses, and then has changed nothing.
    void set(const std::string& name, const std::string& value);

    /// The text that was set; "true" or "false" for switches, "none" for a purge rule that was switched off.
    std::string get(const std::string& name) const;

    const FileSettings& settings() const { return parsed; }

private:
    void change(const std::string& name, const std::string& value);

    FileSettings parsed;
    std::string rotation, archive, purgeAge, purgeCount;
};

} // namespace Zyr
