#pragma once

#include "settings/ChainSettings.h"

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
    QString readText(QLatin1StringView key, const QVariant& defaultValue);

    /// The text that goes to the chain as it stands. One that is not known there is reported.
    QString readText(const ChainSetting& setting);

    /// Everything but "false", "0" and nothing counts as true; what is not "true" or "1" then is reported.
    bool readSwitch(QLatin1StringView key, bool defaultValue);

    /// A text that is no number counts as 0, which is reported. Nothing, and a report, for a number below 0 or above
    /// `most`.
    std::optional<quint32> readCount(QLatin1StringView key, int defaultValue, quint32 most);

    /// Says on standard error what is wrong with a value.
    void report(const QString& key, const QString& value, const QString& problem) const;

    /// Reports the stored keys that none of the above was called with, but for those put out of force by a "-".
    void reportUnknown() const;

private:
    QSettings& settings;
    const QLatin1StringView name;
    bool& changed;
    const QString& file;
    QStringList known;
};

} // namespace Zyr
