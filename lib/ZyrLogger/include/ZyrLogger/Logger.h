#pragma once

#include <ZyrLogger/Export.h>
#include <ZyrLogger/LogMessage.h>

#include <ZyrTools/ConfigFileListener.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <Poco/Mutex.h>

#include <atomic>
#include <memory>

namespace Poco {
class AsyncChannel;
class FileChannel;
class FormattingChannel;
class Logger;
class PatternFormatter;
} // namespace Poco

namespace Zyr {

class LoggerPrivate;
class PocoMessage;

/// A logger: completes messages into records and writes them to its log file, as its settings file says.
///
/// \code
/// Zyr::Logger& log = Zyr::Logger::instance();
/// log.out(Zyr::Error, u"Tank %1 holds %2 litres"_s, __FILE__, __LINE__).arg(name).arg(litres).endl();
/// log.flushFinal(); // once, when the program ends
/// \endcode
///
/// Applications use instance(), or a ClassLogger for one class; out() and the macros of Macros.h begin an entry.
///
/// A record's path: out() makes a LogMessage; its endl() brings it back to completeMessage(), which renders, filters
/// and maps it to a record; with repeat suppression on, the record passes admission; writeMsgToLog() hands it to POCO,
/// where it is formatted on this thread, queued, and written to the file by the logger's worker thread; then the
/// listeners get it.
///
/// Every operation may be called from any thread, also while the settings are being loaded again and while flushFinal()
/// of another logger ends all logging. Only construction and destruction must not overlap with other use of the same
/// logger. Logging reports no error to the code that logs. After POCO's logging has been shut down every operation is
/// harmless, and out() prints the entry's text to standard output instead.
class ZYRLOGGER_EXPORT Logger : public LogMessage::Completer, private ConfigFileListener
{
public:
    /// Gets each record that passes filters, repeat suppression and level, on the thread that logs it, possibly from
    /// several threads at once. It may log, and register and unregister listeners, itself included.
    ///
    /// \code
    /// class ErrorCount : public Zyr::Logger::LogListener
    /// {
    /// public:
    ///     void handleMessage(QString priority, QString, QString) override { count += priority == u"error"_s; }
    ///     std::atomic<int> count = 0;
    /// };
    /// ErrorCount errors;
    /// log.registerLogListener(&errors);
    /// log.unregisterLogListener(&errors); // before `errors` goes
    /// \endcode
    ///
    /// The listener is its owner's, who unregisters it before it is destroyed. An exception keeps the record from the
    /// listeners that were registered later; LogMessage::endl() discards it.
    class LogListener
    {
    public:
        virtual ~LogListener();

        /// Called for each record. `priority` is its name from the settings, `time` local in ISO 8601 with
        /// milliseconds, `text` escaped and marked as the file gets it.
        virtual void handleMessage(QString priority, QString time, QString text) = 0;

        /// Called after handleMessage() with the line as the file gets it, without line end.
        virtual void handleFormatedMessage(QString line);
    };

    /// Finds the log file, creates its directory, loads the settings file and watches it from then on.
    ///
    /// `loggerName` names the POCO logger; a second logger of one name writes nothing. An empty `logFileName` becomes
    /// the application's name (or "Quadel") with ".log"; an empty `settingsFileName` the same with "_Log.ini". The log
    /// file's directory is the first non-empty one of: the environment variable QUADEL_CURRENT_LOG_LOCATION, the
    /// application object's dynamic property of that name, the generic data location, the program's directory;
    /// `logFileName` is always taken below it. ConfigFileListener::ConfigFileListener() tells where the settings file
    /// lies.
    ///
    /// What goes wrong with the files is reported on standard error, not thrown. A logger whose file cannot be opened
    /// drops its entries until it can.
    Logger(QString loggerName, QString logFileName, QString settingsFileName);
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// Waits a second, and until what was logged has been handed to the file.
    ~Logger() override;

    /// The process-wide main logger, made at the first call. It stays valid until the process ends: entries made after
    /// its own shutdown during static destruction go to standard output.
    static Logger& instance()
    {
        Logger* const made = mainLogger.load(std::memory_order_acquire);
        return made ? *made : makeInstance();
    }

    /// Whether an entry of that level is worth being made: its record would be written, or counted as a repeat, or the
    /// logger has no file channel yet, so that out() prints the entry. False after a shutdown. Takes no lock; filters
    /// are not asked.
    ///
    /// May lag behind a level that the application itself has set at the Poco::Logger, until an entry is ended: set it
    /// in the settings file where statements ask here first, which then end none.
    bool isEnabled(unsigned char level) const noexcept
    {
        return priorityOf(level) <= enabledPriority.load(std::memory_order_relaxed);
    }

    /// Starts a message, which the caller fills and ends with LogMessage::endl().
    ///
    /// While the logger has no file channel, which is until its first load of the settings and after POCO's logging was
    /// shut down, prints "Invalid logger - " and the text, placeholders unfilled, on standard output, and returns a
    /// message that ends without effect. `level` is a LogLevel or any other number. `file` is UTF-8, is copied and may
    /// be null.
    [[nodiscard]] LogMessage& out(unsigned char level, const QString& text, const char* file = "", int line = 0);

    /// Completes a message into a record and writes it. Called by LogMessage::endl(), which discards exceptions.
    void completeMessage(LogMessage& message) override;

    /// Writes one finished record to POCO and the listeners, past filters and repeat suppression; the level still
    /// applies. Exceptions of POCO and of listeners reach the caller.
    void writeMsgToLog(const PocoMessage& record);

    /// Writes the summaries of the repeats that are being held back, and forgets all remembered records. Call it before
    /// the program ends: the destructor drops them. Exceptions of POCO and of listeners reach the caller.
    void flushLog();

    /// The last step of a program that stops logging: writes "Logger shutdown" into the main log and has this logger's
    /// file closed. Exceptions of POCO reach the caller.
    ///
    /// On the main logger it returns at once, and a later record opens the file again. On any other it also shuts
    /// POCO's logging down, for the whole process, and returns when what was logged, by every logger, has been handed
    /// to the files or given up.
    void flushFinal();

    /// Hands each record from now on to the listener, after those that were registered before. The listener is not
    /// owned. Registering it twice has no effect.
    void registerLogListener(LogListener* listener);

    /// Ends what registerLogListener() began. When it returns, no other thread is inside the listener, so that it may
    /// be deleted. Hold no lock that its callbacks take. From inside any listener's callback it does not wait: no new
    /// call begins, but the listener must not be deleted there.
    void unregisterLogListener(LogListener* listener);

    /// Drops every entry whose text contains `filter`, case-sensitive, as long as the logger lives; an empty one drops
    /// all. The text is the filled and escaped one, without the mark of its level.
    void addExcludeFilter(QString filter);

    /// Where the log goes now; empty while there is no file channel.
    QString getLogFilePath();

    /// Moves the log to another file, until the next load of the settings. Creates its directory. Does nothing while
    /// there is no file channel. Exceptions of POCO reach the caller and leave the file closed until the next record
    /// opens it.
    void setLogFilePath(QString path);

    /// Sets a property of the file channel until the next load of the settings; the values are those of the settings
    /// file. Otherwise as setLogFilePath(), but creates no directory: what is refused is thrown as POCO's exception.
    ///
    /// - `path`: the log file
    /// - `rotation`: `never`; a size, `N`, `N K` or `N M`; an interval, `daily`, `weekly`, `monthly` or `N` with
    ///   `seconds`, `minutes`, `hours`, `days`, `weeks` or `months`; a time, `[day,][hh]:mm`
    /// - `archive`: `number` or `timestamp`
    /// - `times`: `local` or `utc`, for rotation at a time and for stamps in names; the settings file's `rotateTimes`
    /// - `compress`, `flush`, `rotateOnOpen`: `true` or `false`
    /// - `purgeAge`: `none`, or `N` with `seconds` (also without), `minutes`, `hours`, `days`, `weeks` or `months`
    /// - `purgeCount`: `none`, or how many archives are kept
    void setLogFileProperty(QString name, QString value);

    /// Applies the settings, building the output chain or what is missing of it. For onConfigFileChanged(): what is
    /// applied here lasts until the next load.
    ///
    /// Returns whether missing keys were set; false where the file channel refused a value or could not open its file.
    /// A level that is refused once the logger writes is thrown as POCO's exception.
    bool createLoggerBySettings(QSettings& settings);

    /// Called when the settings file was loaded; on the watcher's thread except for the first load. The main logger
    /// then writes "Logger configuration changed" after every load but the first.
    bool onConfigFileChanged(QSettings& settings, bool firstLoad) override;

private:
    friend class LoggerPrivate; // what these functions do, in lib/ZyrLogger/src/logger
    friend class MainLogger;
    struct NotStarted
    {
    };

    ZYRLOGGER_NO_EXPORT Logger(QString name, const QString& logFileName, const QString& settingsFileName, NotStarted);
    static Logger& makeInstance();

    QString loggerName;
    QString logFilePath;

    // The output chain, from its end to its beginning. Once it is complete, the pointers own nothing: POCO's registry
    // holds the logger, and each link the next. Until then this holds a reference to each object not yet handed on.
    Poco::FileChannel* fileChannel = nullptr;
    Poco::PatternFormatter* patternFormatter = nullptr;
    Poco::AsyncChannel* asyncChannel = nullptr;
    Poco::FormattingChannel* formattingChannel = nullptr;
    Poco::Logger* pocoLogger = nullptr;

    QStringList textFilters;
    QStringList excludeFilters;
    bool checkRepeatedMsg = false;
    quint32 amountRepeatedMsg = 0;
    quint32 maxRepeatedMsgCounter = 10;

    Poco::Mutex mutex;                   // guards the two containers below; nothing is written while it is held
    QList<PocoMessage> pendingMessages;  // records already written and still remembered, oldest first
    QMap<PocoMessage, int> repeatCounts; // the repeats of each, suppressed since it was written
    QList<LogListener*> listeners;

    const std::unique_ptr<LoggerPrivate> d;
    const std::atomic<int>& enabledPriority;

    static std::atomic<Logger*> mainLogger; // null until it is started
};

} // namespace Zyr
