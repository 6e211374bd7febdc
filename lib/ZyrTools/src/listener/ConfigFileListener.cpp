// The path of the settings file, and the public functions of the listener.

#include "listener/ConfigFileListener_p.h"

#include <ZyrTools/Misc.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace Zyr {

namespace {

QString settingsPath(const QString& suffix, const QString& fileName)
{
    const QDir directory(
        Misc::standardDirectory("QUADEL_CURRENT_CONFIG_LOCATION", QStandardPaths::GenericConfigLocation));
    const QString name = fileName.isEmpty() ? Misc::applicationName() + suffix + u".ini"_s : fileName;
    return QFileInfo(directory, name).absoluteFilePath();
}

} // namespace

ConfigFileListener::ConfigFileListener(const QString& suffix, const QString& fileName)
    : d(std::make_shared<Private>(this, settingsPath(suffix, fileName)))
{
}

ConfigFileListener::~ConfigFileListener()
{
    stopConfigFileWatcher();
}

bool ConfigFileListener::startConfigFileWatcher()
{
    const auto kept = d; // the first load's callback may delete this object
    return kept->start();
}

void ConfigFileListener::stopConfigFileWatcher()
{
    d->stop();
}

const QString& ConfigFileListener::configFilePath() const noexcept
{
    return d->name;
}

void ConfigFileListener::configFileLoadFailed(std::function<bool()> mended)
{
    d->loadFailed(std::move(mended));
}

} // namespace Zyr
