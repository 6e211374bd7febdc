#pragma once

#include <ZyrTools/Export.h>

#include <QtCore/QStandardPaths>
#include <QtCore/QString>
#include <QtCore/QVariant>

QT_BEGIN_NAMESPACE
class QSettings;
QT_END_NAMESPACE

/// Small helpers that the family's libraries share. All of them may be called from any thread.
namespace Zyr::Misc {

/// Reads `key` in the current group of `settings`.
///
/// A stored value is returned as it is stored and never rewritten; a text with an unquoted comma, which QSettings
/// reads as a list, comes back as that text (see settingsText()) unless the default is a list. A missing key is set to
/// `defaultValue` in `settings`, `changed` becomes true (it never becomes false) and the result is `defaultValue`. The
/// file itself is written by whoever loaded the settings, once per load.
ZYRTOOLS_EXPORT QVariant checkSettingsValue(QSettings& settings, const QString& key, bool& changed,
                                            const QVariant& defaultValue);

/// The value with a list of texts joined again by ",", every other value unchanged.
ZYRTOOLS_EXPORT QVariant settingsText(const QVariant& value);

/// Creates the directory `dir` with its parents where it is missing. Returns whether it exists now and can be written.
/// An empty `dir` is the working directory.
ZYRTOOLS_EXPORT bool checkDirectory(const QString& dir);

/// The application's name, or "Quadel" where it has none.
ZYRTOOLS_EXPORT QString applicationName();

/// The directory for one kind of file, ending in "/". The first non-empty one of: the environment variable `variable`,
/// the application object's dynamic property of that name, the standard `location`, the directory of the program file.
ZYRTOOLS_EXPORT QString standardDirectory(const char* variable, QStandardPaths::StandardLocation location);

/// What the exception being handled says. To be called from within a catch block only.
ZYRTOOLS_EXPORT QString currentExceptionText();

/// Writes "`subject`: `problem`" as one line to standard error, line breaks within replaced by blanks.
ZYRTOOLS_EXPORT void reportProblem(const QString& subject, const QString& problem) noexcept;

} // namespace Zyr::Misc
