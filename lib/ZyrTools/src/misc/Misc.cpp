// Reading settings values, and creating directories.

#include <ZyrTools/Misc.h>

#include "system/TrustedPath.h"

#include <QtCore/QFile>
#include <QtCore/QSettings>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Zyr::Misc {

namespace {

bool isList(const QVariant& value)
{
    return value.typeId() == QMetaType::QStringList || value.typeId() == QMetaType::QVariantList;
}

} // namespace

QVariant settingsText(const QVariant& value)
{
    return isList(value) ? value.toStringList().join(u',') : value;
}

QVariant checkSettingsValue(QSettings& settings, const QString& key, bool& changed, const QVariant& defaultValue)
{
    if (settings.contains(key))
        return isList(defaultValue) ? settings.value(key) : settingsText(settings.value(key));
    settings.setValue(key, defaultValue);
    changed = true;
    return defaultValue;
}

bool checkDirectory(const QString& dir)
{
    const QByteArray path = QFile::encodeName(dir.isEmpty() ? u"."_s : dir) + "/.";
    TrustedPath realPath;
    return !realPath.find(path.constData(), TrustedPath::Missing::CreateDirectories) &&
           ::faccessat(realPath.directory(), realPath.name(), W_OK | X_OK, AT_EACCESS) == 0;
}

} // namespace Zyr::Misc
