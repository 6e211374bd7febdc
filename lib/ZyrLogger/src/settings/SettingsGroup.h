#pragma once

#include "settings/SettingsKeys.h"

#include <QtCore/QSettings>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <optional>

namespace Zyr {

/// "[group] key = 'value'"
QString describeSetting(QLatin1StringView group, const QString& key, const QString& value);

/// One group of a logger's settings, entered for as long as this object lives.
class SettingsGroup
{
public:
    /// `settingsChanged` becomes true when a missing key is set. `settingsFile` is what reports name.
    SettingsGroup(QSettings& fromSettings, QLatin1StringView groupName, bool& settingsChanged,
                  const QString& settingsFile);
    ~SettingsGroup();
    SettingsGroup(const SettingsGroup&) = delete;
    SettingsGroup& operator=(const SettingsGroup&) = delete;

    bool contains(QLatin1StringView key);

    /// The stored text without writing a default.
    QString storedText(QLatin1StringView key, const QString& defaultText) const;

    /// The stored value; a missing one is set to the default, in the default's type.
    QVariant read(QLatin1StringView key, const QVariant& defaultValue);

    // The same for the keys of the tables. What is not legal is treated as their kinds tell.

    QString read(const TextKey& key);
    bool read(const SwitchKey& key);
    QString read(const ChainKey& key);

    /// Returns false for a refused number, which leaves `count`.
    bool read(const CountKey& key, quint32& count);

    /// Returns false for a refused text, which leaves `value`.
    template <typename Value>
    bool read(const OptionalKey<Value>& key, Value& value)
    {
        const bool isStored = contains(key.name);
        const QString text = storedText(key.name, {});
        const std::optional<Value> wanted = isStored ? key.parse(text) : key.defaultValue;
        if (!wanted)
            report(key.name, text, QStringLiteral("legal is ") + key.legal);
        value = wanted.value_or(value);
        return wanted.has_value();
    }

    /// Reports on standard error what is wrong with a value.
    void report(const QString& key, const QString& value, const QString& problem) const;

    /// Reports the stored keys that contains() and read() were not called with, except those disabled by a "-".
    void reportUnknown() const;

private:
    QSettings& settings;
    const QLatin1StringView name;
    bool& changed;
    const QString& file;
    QStringList known;
};

} // namespace Zyr
