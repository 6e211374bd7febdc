// A program of somebody else that uses the installed libraries.

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>
#include <ZyrLogger/Macros.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QCoreApplication>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("consumer"));
    Zyr::ClassLogger pump(QStringLiteral("Pump"));
    pump.cLogWarning(QStringLiteral("pressure %1")).arg(7).endl();
    ZYR_INFO_AT_MOST_TO(pump, 1, "started").endl();
    return Zyr::Misc::checkDirectory(QStringLiteral(".")) ? 0 : 1;
}
