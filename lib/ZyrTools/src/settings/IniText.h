#pragma once

#include <QtCore/QByteArray>

namespace Zyr {

/// The text as QSettings can read it: without a byte order mark, and with ";" for the "#" that begins a comment. It
/// takes lines with "#" for entries, and a quotation mark in one would open a value over several lines.
QByteArray readableIni(const QByteArray& text);

/// `text` with the entries of `added`, an INI text written by QSettings, at the end of their sections; new sections
/// come last. Everything else stays, line ends included.
QByteArray mergeIni(const QByteArray& text, const QByteArray& added);

} // namespace Zyr
