// The directories and names of the files of the family's programs.

#include <ZyrTools/Misc.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace Zyr::Misc {

QString applicationName()
{
    const QString name = QCoreApplication::applicationName();
    return name.isEmpty() ? u"Quadel"_s : name;
}

QString standardDirectory(const char* variable, QStandardPaths::StandardLocation location)
{
    QString directory = qEnvironmentVariable(variable);
    if (directory.isEmpty() && QCoreApplication::instance())
        directory = QCoreApplication::instance()->property(variable).toString();
    if (directory.isEmpty())
        directory = QStandardPaths::writableLocation(location);
    if (directory.isEmpty())
        directory = QFileInfo(QCoreApplication::applicationFilePath()).path();
    return directory.endsWith(u'/') ? directory : directory + u'/';
}

} // namespace Zyr::Misc
