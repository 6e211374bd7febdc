// A class with a log file and a settings file of its own, pump_Valve.log and pump_Valve_Log.ini, so that its level can
// be raised alone.

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Macros.h>

#include <QtCore/QCoreApplication>

using namespace Qt::StringLiterals;

class Valve
{
public:
    void move(int percent)
    {
        ZYR_DEBUG_TO(log, "Valve goes from %1 to %2 %").arg(position).arg(percent).endl(); // with file and line
        if (percent < 0 || percent > 100)
            log.cLogError(u"No position for a valve: %1 %"_s).arg(percent).endl();
        else
            position = percent;
    }

private:
    Zyr::ClassLogger log{u"Valve"_s};
    int position = 0;
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(u"pump"_s);
    Valve valve;
    valve.move(30);
    valve.move(130);
}
