// libZyrLogger as applications use it: default settings, except for rotation.

#include "Workload.h"

#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Logger.h>

#include <QtCore/QFileInfo>
#include <QtCore/QVariant>

#include <Poco/Timestamp.h>

#include <cstdlib>
#include <fstream>

namespace {

class Ours
{
public:
    static constexpr const char* name = "libZyrLogger";
    static std::string version() { return ZYR_VERSION; }

    Ours(const QString& file, int)
        : owner(prepare(file))
        , logger(owner.getLogger())
        , text(QStringLiteral("pump %1 on line %2 has a pressure of %3 bar"))
    {
    }

    void log(int number, const QString& line, double pressure)
    {
        logger.out(Zyr::Info, text, __FILE__, __LINE__).arg(number).arg(line).arg(pressure).endl();
    }

    void logDisabled(int number, const QString& line, double pressure)
    {
        logger.out(Zyr::Debug, text, __FILE__, __LINE__).arg(number).arg(line).arg(pressure).endl();
    }

    void makeArguments(int number, const QString& line, double pressure)
    {
        const Poco::Timestamp time;
        const QString copy = text;
        const QVariant values[] = {number, line, pressure};
    }

    /// Writes what is queued and closes the file. The entry about the end is the main log's.
    void finish() { logger.flushFinal(); }

private:
    /// Returns the name of the class that the file and the settings belong to.
    static QString prepare(const QString& file)
    {
        QCoreApplication::setApplicationName(QStringLiteral("peers"));
        const std::string directory = QFileInfo(file).path().toStdString();
        setenv("QUADEL_CURRENT_LOG_LOCATION", directory.c_str(), 1);
        setenv("QUADEL_CURRENT_CONFIG_LOCATION", directory.c_str(), 1);
        std::ofstream(directory + "/peers_Bench_Log.ini") << "[LoggerFileChannel]\nrotation=never\n";
        Zyr::Logger::instance(); // flushFinal() would make it
        return QStringLiteral("Bench");
    }

    Zyr::ClassLogger owner;
    Zyr::Logger& logger;
    const QString text;
};

} // namespace

int main(int count, char* words[])
{
    return Bench::run<Ours>(count, words);
}
