// Where the settings file lies, and the public side of the listener.
#include "ConfigFileListener_p.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QStandardPaths>
#include <QtCore/QVariant>

using namespace Qt::StringLiterals;

namespace Zyr {

namespace {

constexpr auto locationName = "QUADEL_CURRENT_CONFIG_LOCATION";

QString settingsDirectory()
{
    const QCoreApplication* application = QCoreApplication::instance();
    QString directory = qEnvironmentVariable(locationName);
    if (directory.isEmpty() && application)
        directory = application->property(locationName).toString();
    if (directory.isEmpty())
        directory = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    if (directory.isEmpty())
        directory = QFileInfo(QFile::symLinkTarget(u"/proc/self/exe"_s)).path();
    return directory;
}

QString settingsPath(const QString& suffix, const QString& fileName)
{
    QString name = fileName;
    if (name.isEmpty()) {
        name = QCoreApplication::applicationName();
        name = (name.isEmpty() ? u"Quadel"_s : name) + suffix + u".ini"_s;
    }
    return QFileInfo(QDir(settingsDirectory()), name).absoluteFilePath();
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
