#pragma once

#include <ZyrTools/Export.h>

#include <QtCore/QStandardPaths>
#include <QtCore/QString>
#include <QtCore/QVariant>

QT_BEGIN_NAMESPACE
class QSettings;
QT_END_NAMESPACE

/// Small helpers that the family's libraries share, and that applications may use in listeners of their own. All may be
/// called from any thread.
namespace Zyr::Misc {

/// Reads `key` in the current group of `settings`, or sets it to its default where it is missing.
///
/// A stored value is returned as it is stored, a text as a rule, and never rewritten; a text with an unquoted comma,
/// which QSettings reads as a list, comes back as that text (see settingsText()) unless the default is a list. A
/// missing key is set to `defaultValue` in `settings`, `changed` becomes true (it never becomes false) and the result
/// is `defaultValue`. The loader of the settings writes the file, once per load.
ZYRTOOLS_EXPORT QVariant checkSettingsValue(QSettings& settings, const QString& key, bool& changed,
                                            const QVariant& defaultValue);

/// The value with a list of texts joined again by ",", every other value unchanged.
ZYRTOOLS_EXPORT QVariant settingsText(const QVariant& value);

/// Creates the directory `dir` with its parents where it is missing. Returns whether it exists now and can be written.
/// An empty `dir` is the working directory. What is created has the permissions that the umask leaves. Symbolic links
/// on the way are followed where root or this process's user owns them.
ZYRTOOLS_EXPORT bool checkDirectory(const QString& dir);

/// The name that files are called by: the application's, or "Quadel" where it has none.
ZYRTOOLS_EXPORT QString applicationName();

/// The directory for one kind of file, ending in "/". Nothing is created.
///
/// The first non-empty one of: the environment variable `variable`, the application object's dynamic property of that
/// name, the standard `location`, the directory of the program file. Set that property before other threads ask here.
ZYRTOOLS_EXPORT QString standardDirectory(const char* variable, QStandardPaths::StandardLocation location);

/// What the exception being handled says, POCO's included. To be called from within a catch block only.
ZYRTOOLS_EXPORT QString currentExceptionText();

/// Writes `subject`, a colon, a blank and `problem` as one line to standard error. Line breaks and tabs become blanks,
/// other unprintable characters become escapes such as \\x1b or \\u202e, and a line of more than 4 KB is cut.
///
/// Never blocks and raises no signal: a report that cannot be written at once is dropped, and a line before the next
/// one that can be written says how many were.
ZYRTOOLS_EXPORT void reportProblem(const QString& subject, const QString& problem) noexcept;

} // namespace Zyr::Misc
