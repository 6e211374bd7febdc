// What the benchmarks of single statements share: loggers in a temporary directory, and the entry that they log.

#pragma once

#include "Timing.h"

#include <ZyrLogger/Logger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace Bench {

inline const QString standardText = QStringLiteral("pump %1 on line %2 has a pressure of %3 bar");

inline void logEntry(Zyr::Logger& logger, Zyr::LogLevel level, const Record::Lines& lines, int number)
{
    logger.out(level, standardText, __FILE__, __LINE__)
        .arg(number)
        .arg(lines.of(number))
        .arg(Record::pressure(number))
        .endl();
}

/// Its values change from number to number, not its length by more than a few characters.
inline void logStandard(Zyr::Logger& logger, const Record::Lines& lines, int number)
{
    logEntry(logger, Zyr::Info, lines, 1000 + number % 1000);
}

/// One of these at a time. Nothing is destroyed before finish().
class Loggers
{
public:
    Loggers()
    {
        const std::string path = directory.path().toStdString();
        setenv("QUADEL_CURRENT_LOG_LOCATION", path.c_str(), 1);
        setenv("QUADEL_CURRENT_CONFIG_LOCATION", path.c_str(), 1);
        writeSettings(QCoreApplication::applicationName() + QStringLiteral("_Log.ini"), "");
        Zyr::Logger::instance();
    }

    /// `settings` are lines of the group Logger. The files stay small, however long the logger is used.
    Zyr::Logger& make(const std::string& name, const std::string& settings)
    {
        const QString qtName = QString::fromStdString(name);
        writeSettings(qtName + QStringLiteral(".ini"), settings);
        loggers.push_back(
            std::make_unique<Zyr::Logger>(qtName, qtName + QStringLiteral(".log"), qtName + QStringLiteral(".ini")));
        return *loggers.back();
    }

    QString path(const QString& file) const { return directory.filePath(file); }

    /// Lines in the logger's file, archives left out. After finish() only.
    std::ptrdiff_t lines(const std::string& name) const
    {
        std::ifstream file(directory.filePath(QString::fromStdString(name + ".log")).toStdString());
        return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    }

    /// Writes what is queued. Logging is over then, and the loggers are left to the end of the process: to destroy one
    /// takes a second.
    void finish()
    {
        if (!loggers.empty())
            loggers.front()->flushFinal(); // which shuts all of POCO's logging down
        for (auto& logger : loggers)
            static_cast<void>(logger.release());
    }

private:
    void writeSettings(const QString& file, const std::string& settings)
    {
        std::ofstream(directory.filePath(file).toStdString())
            << "[Logger]\n"
            << settings << "[LoggerFileChannel]\nrotation=16 M\ncompress=false\npurgeCount=1\n";
    }

    const QTemporaryDir directory;
    std::vector<std::unique_ptr<Zyr::Logger>> loggers;
};

} // namespace Bench
