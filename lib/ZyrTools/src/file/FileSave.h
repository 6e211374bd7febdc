#pragma once

#include "file/FileBytes.h"

#include <optional>

namespace Zyr {

class TrustedPath;

/// Whether a file may be written: its directory can be, and so can the file where there is one. A file without any
/// write bit is left alone by the superuser too, since somebody took the bits away on purpose; so is one whose owner
/// could not be kept, or that has other names, which would lose it.
bool maySave(const TrustedPath& place);

/// Replaces `loaded`, the content that the file had, by `bytes`, with owner and mode kept; where the file was missing
/// it is created. Content that somebody else saved there in between stays, before as during the call.
///
/// @param problem why the file could not be written; stays empty where it was left alone on purpose
/// @return what was written
std::optional<FileBytes> saveFile(const TrustedPath& place, const FileBytes& loaded, const QByteArray& bytes,
                                  QString& problem);

} // namespace Zyr
