#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <memory>
#include <optional>

QT_BEGIN_NAMESPACE
class QSettings;
QT_END_NAMESPACE

namespace Zyr {

using SettingsMap = QMap<QString, QVariant>;

struct ParsedSettings
{
    SettingsMap values;
    bool wellFormed = true;
};

/// What QSettings reads from the bytes of an INI file; nothing, and the reason, where the system cannot give it a
/// memory file with them: for want of descriptors, or since the process may write no file of that size.
std::optional<ParsedSettings> parseSettings(const QByteArray& bytes, QString& reason);

/// What QSettings writes when `removed` and `values` are applied to a file with the content `base`. Works in a
/// temporary folder of its own, in `directory`, unless that is empty, where the system's place for them takes none;
/// nothing, and the reason, when that fails too.
std::optional<QByteArray> serialiseSettings(const QByteArray& base, const SettingsMap& values,
                                            const QStringList& removed, const QString& directory, QString& reason);

/// A QSettings object with the given values that has no file: what is set in it is written nowhere.
class MemorySettings
{
public:
    explicit MemorySettings(const SettingsMap& values);
    ~MemorySettings();
    MemorySettings(const MemorySettings&) = delete;
    MemorySettings& operator=(const MemorySettings&) = delete;

    QSettings& settings() noexcept { return *object; }

private:
    std::unique_ptr<QSettings> object;
};

/// All keys of `settings` and their values.
SettingsMap allValues(const QSettings& settings);

} // namespace Zyr
