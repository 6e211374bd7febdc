#pragma once

#include "file/FileBytes.h"
#include "settings/SettingsText.h"

#include <optional>

namespace Zyr {

/// Writes what a listener changed in the loaded values to the settings file `path`, whose content was `loaded`. Added
/// keys are inserted into the text; if keys were changed or removed, QSettings writes it anew. A file that may not be
/// written, or that another process has saved meanwhile, is left alone without a report.
///
/// @return what was written
std::optional<FileBytes> writeBack(const QByteArray& path, const FileBytes& loaded, const SettingsMap& before,
                                   const SettingsMap& after);

} // namespace Zyr
