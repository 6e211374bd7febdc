#pragma once

#include <ZyrLogger/Export.h>
#include <ZyrLogger/LogMessage.h>

#include <QtCore/QString>

namespace Zyr {

class Logger;

/// A logger of its own for one class of the application: class Valve of the application pump writes pump_Valve.log and
/// reads pump_Valve_Log.ini, in the directories that Logger::Logger() tells.
///
/// \code
/// class Valve
/// {
/// public:
///     void open(int percent) { log.cLogInfo(u"opens to %1 percent"_s).arg(percent).endl(); }
///
/// private:
///     Zyr::ClassLogger log{u"Valve"_s};
/// };
/// \endcode
///
/// The calls may be used from any thread; construction and destruction must not overlap with them. Two class loggers of
/// one name get the same files, and only the first one writes.
class ZYRLOGGER_EXPORT ClassLogger
{
public:
    /// Opens the files, as Logger::Logger() does. Set the application's name before; without an application object the
    /// files' names begin with "_". `className` becomes the name of the POCO logger too; "MainLogger" is the main
    /// logger's. One with "/" gives files in a directory below; with "/../" in it or "/" first, which could lead
    /// elsewhere, each "/" becomes "_" in their names, and standard error says so.
    explicit ClassLogger(QString className);
    ClassLogger(const ClassLogger&) = delete;
    ClassLogger& operator=(const ClassLogger&) = delete;

    /// Waits a second, and until what was logged has been handed to the file. Messages must not be ended later.
    virtual ~ClassLogger();

    /// The logger behind it, for listeners, filters and the location of the file. It lives as long as this object.
    Logger& getLogger() const;

    /// @name One for each level
    /// @{

    /// Starts a message as Logger::out() does, without source file and line, which the caller fills and ends with
    /// LogMessage::endl().
    [[nodiscard]] LogMessage& cLogEmerg(const QString& text);
    [[nodiscard]] LogMessage& cLogAlert(const QString& text);
    [[nodiscard]] LogMessage& cLogCritical(const QString& text);
    [[nodiscard]] LogMessage& cLogError(const QString& text);
    [[nodiscard]] LogMessage& cLogWarning(const QString& text);
    [[nodiscard]] LogMessage& cLogNotice(const QString& text);
    [[nodiscard]] LogMessage& cLogInfo(const QString& text);
    [[nodiscard]] LogMessage& cLogDebug(const QString& text);
    [[nodiscard]] LogMessage& cLogTrace(const QString& text);
    [[nodiscard]] LogMessage& cLogSystem(const QString& text);
    [[nodiscard]] LogMessage& cLogTODO(const QString& text);
    /// @}

private:
    [[nodiscard]] ZYRLOGGER_NO_EXPORT LogMessage& out(unsigned char level, const QString& text);

    Logger* logger;
};

} // namespace Zyr
