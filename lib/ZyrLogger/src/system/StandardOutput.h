#pragma once

#include <QtCore/QString>

namespace Zyr::StandardOutput {

/// Writes `line` and a line end, and flushes. All lines of the library go through one stream, one at a time; it works
/// from static constructors to static destructors.
void printLine(const QString& line);

/// The same after an empty line.
void printParagraph(const QString& line);

/// For the child of a fork, where a thread that is not there may have been inside.
void afterForkInChild() noexcept;

} // namespace Zyr::StandardOutput
