// Repeat suppression: a record that is still remembered is counted instead of written, and summarised later.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerState.h"

#include <ZyrLogger/PocoMessage.h>

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

using Lock = Poco::ScopedLockWithUnlock<Poco::Mutex>;

PocoMessage summaryOf(PocoMessage record, int count)
{
    const QString text = QString(u"%1... (repeated %2 times)."_s)
                             .arg(QString::fromUtf8(record.getText().c_str()))
                             .arg(static_cast<qlonglong>(count));
    record.setText(text.toUtf8().constData());
    return record;
}

} // namespace

/// Invariant while `mutex` is free: repeatCounts has one key for each element of pendingMessages and no other, and
/// pendingFiles holds the names that these point to.
///
/// `mutex` is unlocked explicitly: an unlock that fails is an exception, and then nothing is written.
///
/// Returns whether the record is to be written, behind the summary that it may be the reason for.
bool Logger::admit(const PocoMessage& record, const QByteArray& sourceFile, const RepeatLimits& limits)
{
    Lock lock(mutex);
    const auto known = repeatCounts.find(record);
    if (known != repeatCounts.end()) {
        const int count = known.value();
        constexpr quint32 countLimit = std::numeric_limits<int>::max();
        if (static_cast<quint32>(count) < std::min(limits.repeats, countLimit)) {
            ++known.value();
            lock.unlock();
            return false;
        }
        const qsizetype position = pendingMessages.indexOf(record);
        pendingMessages.removeAt(position);
        state->pendingFiles.removeAt(position);
        repeatCounts.erase(known);
        lock.unlock();
        writeSummary(record, count);
        return true;
    }

    remember(record, sourceFile);
    if (static_cast<quint64>(pendingMessages.size()) <= limits.remembered) {
        lock.unlock();
        return true;
    }
    const PocoMessage oldest = pendingMessages.takeFirst();
    const QByteArray oldestFile = state->pendingFiles.takeFirst(); // the summary points to it
    const int count = repeatCounts.take(oldest);
    lock.unlock();
    if (count > 0)
        writeSummary(oldest, count);
    return true;
}

/// One that there is no memory for is lost alone, and what comes behind it is written.
void Logger::writeSummary(const PocoMessage& record, int count)
{
    std::optional<PocoMessage> summary;
    try {
        summary = summaryOf(record, count);
    } catch (const std::bad_alloc&) {
        return state->loseRecord(record.getPriority());
    }
    writeMsgToLog(*summary);
}

/// Leaves everything as it was when it throws. The caller holds `mutex`.
void Logger::remember(const PocoMessage& record, const QByteArray& sourceFile)
{
    pendingMessages.append(record);
    try {
        state->pendingFiles.append(sourceFile);
        repeatCounts.insert(record, 0);
    } catch (...) {
        pendingMessages.removeLast();
        state->pendingFiles.resize(pendingMessages.size());
        throw;
    }
}

void Logger::flushLog()
{
    Lock lock(mutex);
    const QList<PocoMessage> records = std::exchange(pendingMessages, {});
    const QMap<PocoMessage, int> counts = std::exchange(repeatCounts, {});
    const QList<QByteArray> files = std::exchange(state->pendingFiles, {}); // the records point to them
    lock.unlock();

    for (const PocoMessage& record : records) {
        if (const int count = counts.value(record); count > 0)
            writeSummary(record, count);
    }
}

} // namespace Zyr
