#pragma once

#include <QtCore/QByteArray>

namespace Zyr {

/// The text as QSettings can read it: without a byte order mark, and with the comments that begin with "#" turned into
/// those that it knows, since it would take them for entries and their quotation marks for the beginning of a value.
QByteArray readableIni(const QByteArray& text);

/// `text` with the entries of `added`, an INI text written by QSettings, at the end of their sections; sections that
/// are missing come last. Everything else stays as it is, line ends included.
QByteArray mergeIni(const QByteArray& text, const QByteArray& added);

} // namespace Zyr
