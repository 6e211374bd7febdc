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

/// What a line can show of a text that got there by mistake.
QString shortened(const QString& text)
{
    constexpr qsizetype most = 100;
    return text.size() <= most ? text : text.left(most) + u"... ("_s + QString::number(text.size()) + u" characters)"_s;
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

QString SettingsGroup::readText(QLatin1StringView key, const QVariant& defaultValue)
{
    return read(key, defaultValue).toString();
}

QString SettingsGroup::readText(const ChainSetting& setting)
{
    QString text = readText(setting.key, setting.defaultValue);
    if (!setting.known.empty() && !isOneOf(text, setting.known))
        report(setting.key, text, u"is not known and counts as "_s + setting.known.back());
    return text;
}

bool SettingsGroup::readSwitch(QLatin1StringView key, bool defaultValue)
{
    const QVariant value = read(key, defaultValue);
    const QString text = value.toString();
    constexpr QLatin1StringView plain[] = {"true"_L1, "1"_L1, "false"_L1, "0"_L1, ""_L1};
    if (!isOneOf(text, plain))
        report(key, text, u"is not known and counts as true"_s);
    return value.toBool();
}

std::optional<quint32> SettingsGroup::readCount(QLatin1StringView key, int defaultValue, quint32 most)
{
    const QVariant value = read(key, defaultValue);
    // Asked first: Qt takes what is out of range for another number.
    if (const double number = value.toDouble(); number < 0 || number > most) {
        report(key, value.toString(), u"legal is a number from 0 to "_s + QString::number(most));
        return std::nullopt;
    }
    bool isCount = false;
    const quint32 count = value.toUInt(&isCount);
    if (!isCount)
        report(key, value.toString(), u"is no whole number and counts as 0"_s);
    return count;
}

void SettingsGroup::report(const QString& key, const QString& value, const QString& problem) const
{
    QString text = u' ' + problem;
    if (const QString shown = shortened(value); shown != value)
        text.replace(value, shown); // many name it once more
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
