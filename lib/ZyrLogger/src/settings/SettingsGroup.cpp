// Reads the keys of one group, adds the missing ones, and reports what is wrong with a value.

#include "settings/SettingsGroup.h"

#include <ZyrTools/Misc.h>

#include <algorithm>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

bool isOneOf(const QString& text, std::span<const QLatin1StringView> known)
{
    return std::any_of(known.begin(), known.end(),
                       [&](QLatin1StringView each) { return text.compare(each, Qt::CaseInsensitive) == 0; });
}

/// For a report: a text that got there by mistake may be of any length.
QString shortened(const QString& text)
{
    constexpr qsizetype maxShown = 100;
    return text.size() <= maxShown
               ? text
               : text.left(maxShown) + u"... ("_s + QString::number(text.size()) + u" characters)"_s;
}

} // namespace

QString describeSetting(QLatin1StringView group, const QString& key, const QString& value)
{
    return u'[' + group + u"] "_s + shortened(key) + u" = '"_s + shortened(value) + u'\'';
}

SettingsGroup::SettingsGroup(QSettings& fromSettings, QLatin1StringView groupName, bool& settingsChanged,
                             const QString& settingsFile)
    : settings(fromSettings)
    , name(groupName)
    , changed(settingsChanged)
    , file(settingsFile)
{
    settings.beginGroup(QString(name));
}

SettingsGroup::~SettingsGroup()
{
    settings.endGroup();
}

bool SettingsGroup::contains(QLatin1StringView key)
{
    known.append(key);
    return settings.contains(QString(key));
}

QString SettingsGroup::storedText(QLatin1StringView key, const QString& defaultText) const
{
    return Misc::settingsText(settings.value(QString(key), defaultText)).toString();
}

QVariant SettingsGroup::read(QLatin1StringView key, const QVariant& defaultValue)
{
    known.append(key);
    return Misc::checkSettingsValue(settings, QString(key), changed, defaultValue);
}

QString SettingsGroup::read(const TextKey& key)
{
    return read(key.name, QString(key.defaultText)).toString();
}

bool SettingsGroup::read(const SwitchKey& key)
{
    const QVariant value = read(key.name, key.defaultValue);
    const QString text = value.toString();
    constexpr QLatin1StringView plain[] = {"true"_L1, "1"_L1, "false"_L1, "0"_L1, ""_L1};
    if (!isOneOf(text, plain))
        report(key.name, text, u"is not known and counts as true"_s);
    return value.toBool();
}

QString SettingsGroup::read(const ChainKey& key)
{
    QString text = read(key.name, key.defaultVariant()).toString();
    if (!key.known.empty() && !isOneOf(text, key.known))
        report(key.name, text, u"is not known and counts as "_s + key.known.back());
    return text;
}

bool SettingsGroup::read(const CountKey& key, quint32& count)
{
    const QVariant value = read(key.name, key.defaultValue);
    // Checked first: toUInt() wraps a number out of range.
    if (const double number = value.toDouble(); number < 0 || number > key.max) {
        report(key.name, value.toString(), u"legal is a number from 0 to "_s + QString::number(key.max));
        return false;
    }
    bool isCount = false;
    count = value.toUInt(&isCount);
    if (!isCount)
        report(key.name, value.toString(), u"is no whole number and counts as 0"_s);
    return true;
}

void SettingsGroup::report(const QString& key, const QString& value, const QString& problem) const
{
    QString text = u' ' + problem;
    if (const QString shown = shortened(value); shown != value)
        text.replace(value, shown); // many reports name the value again
    Misc::reportProblem(file, describeSetting(name, key, value) + text);
}

void SettingsGroup::reportUnknown() const
{
    const QStringList stored = settings.childKeys();
    for (const QString& key : stored) {
        if (!known.contains(key) && !key.startsWith(u'-'))
            report(key, Misc::settingsText(settings.value(key)).toString(), u"is no setting, and does nothing"_s);
    }
}

} // namespace Zyr
