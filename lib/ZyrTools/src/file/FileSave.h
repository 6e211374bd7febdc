#pragma once

#include "file/FileBytes.h"

#include <optional>

namespace Zyr {

class TrustedPath;

/// Whether the file may be replaced: its directory is writable, and so is the file if it exists. A file without any
/// write bit is left alone even by root, as the bits were taken away on purpose; so is one whose owner could not be
/// kept, or that has other hard links, which would keep the old content.
bool maySave(const TrustedPath& path);

/// Replaces the content `loaded` by `bytes` and keeps owner and mode; creates the file if it was missing. Never
/// overwrites what another process has saved since `loaded` was read, even during the call.
///
/// @param problem why the file could not be written; unchanged if it was left alone on purpose
/// @return what was written
std::optional<FileBytes> saveFile(const TrustedPath& path, const FileBytes& loaded, const QByteArray& bytes,
                                  QString& problem);

} // namespace Zyr
