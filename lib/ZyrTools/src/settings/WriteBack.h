#pragma once

#include "file/FileBytes.h"
#include "settings/SettingsText.h"

#include <optional>

namespace Zyr {

/// Brings the settings file `path`, whose content was `loaded`, up to what a listener made of its values. Added keys go
/// into the text as it is; only changed or removed ones have QSettings write it anew. A file that may not be written,
/// or that somebody else has saved meanwhile, is left alone without a word.
///
/// @return what was written
std::optional<FileBytes> writeBack(const QByteArray& path, const FileBytes& loaded, const SettingsMap& before,
                                   const SettingsMap& after);

} // namespace Zyr
