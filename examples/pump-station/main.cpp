// A pump station that logs, and an operator who changes what it logs while it runs. Everything it writes lies below the
// directory that it is given: log/ and config/.

#include "Operator.h"
#include "PumpStation.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QLocale>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void announce(const char* text)
{
    std::printf("\n== %s ==\n", text);
    std::fflush(stdout);
}

/// The settings that the station is delivered with: small log files, so that they rotate soon. The loggers add the
/// keys that are missing.
bool deliver(const QString& path, const char* level)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) &&
           file.write(QByteArray("[LoggerFileChannel]\nrotation=20 K\n\n[Logger]\nlevel=") + level + '\n') > 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(u"pump"_s);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedKingdom));
    const QDir config(app.arguments().value(1) + u"/config"_s);
    const QString stationSettings = config.absoluteFilePath(u"pump_Log.ini"_s);
    if (argc != 2 || !config.mkpath(u"."_s) || !deliver(stationSettings, "information") ||
        !deliver(config.absoluteFilePath(u"pump_Valve_Log.ini"_s), "information") ||
        !deliver(config.absoluteFilePath(u"pump_Motor_Log.ini"_s), "trace")) {
        std::fputs("usage: pump-station <directory that can be written>\n", stderr);
        return 2;
    }
    qputenv("QUADEL_CURRENT_CONFIG_LOCATION", QFile::encodeName(config.absolutePath()));
    qputenv("QUADEL_CURRENT_LOG_LOCATION", QFile::encodeName(config.absoluteFilePath(u"../log"_s)));

    announce("Level information: no debug records, and every repeat is written");
    PumpStation station;
    Operator technician(stationSettings);
    const QMap<QString, QString> changes = {
        {u"level"_s, u"debug"_s}, {u"textFilters"_s, u"Tank|Pump|Logger"_s}, {u"checkRepeatedMsg"_s, u"true"_s}};
    station.run(150, [&] {
        announce("The operator edits pump_Log.ini: level debug, only Tank, Pump and Logger, repeats suppressed");
        technician.edit(changes, [&] { station.run(150, [] { QCoreApplication::quit(); }); });
    });
    const int result = app.exec();

    announce("The station stops");
    Zyr::Logger::instance().flushLog();
    Zyr::Logger::instance().flushFinal();
    return result;
}
