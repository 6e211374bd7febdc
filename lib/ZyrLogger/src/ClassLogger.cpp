#include <ZyrLogger/ClassLogger.h>

#include <ZyrLogger/Logger.h>

#include <QtCore/QCoreApplication>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

QString fileName(const QString& className, const QString& ending)
{
    return QCoreApplication::applicationName() + u'_' + className + ending;
}

} // namespace

ClassLogger::ClassLogger(QString className)
    : logger(new Logger(className, fileName(className, u".log"_s), fileName(className, u"_Log.ini"_s)))
{
}

ClassLogger::~ClassLogger()
{
    delete logger;
}

Logger& ClassLogger::getLogger() const
{
    return *logger;
}

LogMessage& ClassLogger::out(unsigned char level, const QString& text)
{
    return logger->out(level, text, "", 0);
}

LogMessage& ClassLogger::cLogEmerg(const QString& text)
{
    return out(Emerg, text);
}

LogMessage& ClassLogger::cLogAlert(const QString& text)
{
    return out(Alert, text);
}

LogMessage& ClassLogger::cLogCritical(const QString& text)
{
    return out(Critical, text);
}

LogMessage& ClassLogger::cLogError(const QString& text)
{
    return out(Error, text);
}

LogMessage& ClassLogger::cLogWarning(const QString& text)
{
    return out(Warning, text);
}

LogMessage& ClassLogger::cLogNotice(const QString& text)
{
    return out(Notice, text);
}

LogMessage& ClassLogger::cLogInfo(const QString& text)
{
    return out(Info, text);
}

LogMessage& ClassLogger::cLogDebug(const QString& text)
{
    return out(Debug, text);
}

LogMessage& ClassLogger::cLogTrace(const QString& text)
{
    return out(Trace, text);
}

LogMessage& ClassLogger::cLogSystem(const QString& text)
{
    return out(System, text);
}

LogMessage& ClassLogger::cLogTODO(const QString& text)
{
    return out(Todo, text);
}

} // namespace Zyr
