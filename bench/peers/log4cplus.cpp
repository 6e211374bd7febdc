// log4cplus: an AsyncAppender with its usual queue before a FileAppender. Its thread formats the line.

#include "JsonText.h"
#include "Workload.h"

#include <log4cplus/asyncappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/version.h>

#include <memory>

namespace {

const log4cplus::tstring& levelName(log4cplus::LogLevel level)
{
    static const log4cplus::tstring info = "info";
    static const log4cplus::tstring other;
    return level == log4cplus::INFO_LOG_LEVEL ? info : other;
}

class Log4cplus
{
public:
    static constexpr const char* name = "log4cplus";
    static std::string version() { return LOG4CPLUS_VERSION_STR; }

    Log4cplus(const QString& path, int)
    {
        log4cplus::getLogLevelManager().pushToStringMethod(levelName);
        const bool flushEachRecord = false;
        log4cplus::SharedAppenderPtr file(
            new log4cplus::FileAppender(path.toStdString(), std::ios_base::trunc, flushEachRecord));
        file->setLayout(std::make_unique<log4cplus::PatternLayout>(
            R"({"timestamp":"%D{%Y-%m-%dT%H:%M:%S.%q%z}","level":"%p","msg":"%m"}%n)"));
        const unsigned usualQueueLimit = 100;
        logger = log4cplus::Logger::getInstance("bench");
        logger.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::AsyncAppender(file, usualQueueLimit)));
        logger.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    }

    void log(int number, const QString& line, double pressure)
    {
        LOG4CPLUS_INFO_FMT(logger, "pump %d on line %s has a pressure of %g bar", number, Bench::jsonText(line).c_str(),
                           pressure);
    }

    /// The macro asks for the level before it looks at the arguments.
    void logDisabled(int number, const QString& line, double pressure)
    {
        LOG4CPLUS_DEBUG_FMT(logger, "pump %d on line %s has a pressure of %g bar", number,
                            Bench::jsonText(line).c_str(), pressure);
    }

    void makeArguments(int, const QString&, double) {}

    /// The thread empties its queue before it ends; the file is closed then.
    void finish() { log4cplus::Logger::shutdown(); }

private:
    const log4cplus::Initializer initializer;
    log4cplus::Logger logger;
};

} // namespace

int main(int count, char* words[])
{
    return Bench::run<Log4cplus>(count, words);
}
