#pragma once

#include "settings/QtSettings.h"

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <optional>

namespace Zyr {

using SettingsMap = QMap<QString, QVariant>;

struct ParsedSettings
{
    SettingsMap values;
    bool wellFormed = true;
};

/// What QSettings reads from the bytes of an INI file. Nothing, and the reason, if the system gives no memory file for
/// it: for lack of descriptors, or because of the process's file size limit.
std::optional<ParsedSettings> parseSettings(const QByteArray& bytes, QString& reason);

/// What QSettings writes when `removed` and `values` are applied to a file with the content `base`. It works in a
/// temporary directory; if none can be created in the system's usual one, in `directory`, unless that is empty.
/// Nothing, and the reason, if that fails too.
std::optional<QByteArray> serialiseSettings(const QByteArray& base, const SettingsMap& values,
                                            const QStringList& removed, const QString& directory, QString& reason);

/// A QSettings object with the given values and no file.
class MemorySettings
{
public:
    explicit MemorySettings(const SettingsMap& values);
    ~MemorySettings();
    MemorySettings(const MemorySettings&) = delete;
    MemorySettings& operator=(const MemorySettings&) = delete;

    QSettings& settings() noexcept { return *object; }

private:
    const QtSettings::Object object;
};

/// All keys of `settings` and their values.
SettingsMap allValues(const QSettings& settings);

} // namespace Zyr
