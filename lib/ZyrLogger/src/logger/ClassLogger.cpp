// The files of a class logger, and its call for each level.

#include <ZyrLogger/ClassLogger.h>

#include <ZyrLogger/Logger.h>

#include <ZyrTools/Misc.h>

#include <QtCore/QCoreApplication>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

QString fileName(const QString& stem, const QString& ending)
{
    return QCoreApplication::applicationName() + u'_' + stem + ending;
}

/// Whether files of that class would lie elsewhere than in or below the directory of the application's own, or could be
/// named like others there.
bool leadsAway(const QString& className)
{
    return className.startsWith(u'/') || className.contains(u"/../"_s);
}

Logger* makeLogger(const QString& className)
{
    QString stem = className;
    if (leadsAway(className)) {
        stem.replace(u'/', u'_');
        Misc::reportProblem(u"class logger '"_s + className + u'\'',
                            u"its name leads away from the directories of its files, which are named "_s +
                                fileName(stem, u".log"_s) + u" and "_s + fileName(stem, u"_Log.ini"_s));
    }
    return new Logger(className, fileName(stem, u".log"_s), fileName(stem, u"_Log.ini"_s));
}

} // namespace

ClassLogger::ClassLogger(QString className)
    : logger(makeLogger(className))
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
