// Repeat suppression: a record that is still remembered is counted instead of written, and summarised later.

#pragma once

#include "logger/LoggerRules.h"

#include <ZyrLogger/PocoMessage.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>

#include <Poco/Mutex.h>

namespace Zyr {

class LoggerPrivate;

/// Keeps the logger's fields for it, all guarded by Logger::mutex. Invariant while that is free: `counts` has one key
/// for each element of `pending` and no other. Nothing is written while it is held; it is unlocked explicitly: an
/// unlock that fails is an exception, and then nothing is written.
///
/// The check of locks does not know POCO's mutexes.
class RepeatSuppression
{
public:
    /// The logger's fields; `itsMutex` guards the two containers.
    RepeatSuppression(LoggerPrivate& itsLogger, Poco::Mutex& itsMutex, QList<PocoMessage>& pendingMessages,
                      QMap<PocoMessage, int>& repeatCounts)
        : logger(itsLogger)
        , mutex(itsMutex)
        , pending(pendingMessages)
        , counts(repeatCounts)
    {
    }
    RepeatSuppression(const RepeatSuppression&) = delete;
    RepeatSuppression& operator=(const RepeatSuppression&) = delete;

    /// Returns whether the record is to be written, behind the summary that it may be the reason for.
    bool admit(const PocoMessage& record, const QByteArray& sourceFile, const RepeatLimits& limits);

    /// Writes the summaries that are due, and forgets all records.
    void flush();

    // Around fork().
    void lock() { mutex.lock(); }
    void unlock() { mutex.unlock(); }
    void renewInChild();

private:
    using Lock = Poco::ScopedLockWithUnlock<Poco::Mutex>;

    void remember(const PocoMessage& record, const QByteArray& sourceFile);
    void writeSummary(const PocoMessage& record, int count);

    LoggerPrivate& logger;
    Poco::Mutex& mutex;
    QList<PocoMessage>& pending;
    QMap<PocoMessage, int>& counts;
    QList<QByteArray> files; ///< names of the source files that the records in `pending` point to, in the same order
};

} // namespace Zyr
