#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtCore/QCoreApplication>

using namespace Qt::StringLiterals;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(u"pump"_s);
    Zyr::Logger& log = Zyr::Logger::instance();
    log.out(Zyr::Warning, u"Tank %tank holds %1 litres"_s).arg(48250).topic(u"tank"_s, u"T1"_s).endl();
    Zyr::ClassLogger valve(u"Valve"_s); // has a log file and a settings file of its own
    valve.cLogInfo(u"Valve %1 opens"_s).arg(3).endl();
}
