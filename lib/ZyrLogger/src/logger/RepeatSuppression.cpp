// How repeats are counted, and their summaries written.

#include "logger/RepeatSuppression.h"

#include "logger/LoggerPrivate.h"

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <utility>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

PocoMessage summaryOf(PocoMessage record, int count)
{
    const QString text = QString(u"%1... (repeated %2 times)."_s)
                             .arg(QString::fromUtf8(record.getText().c_str()))
                             .arg(static_cast<qlonglong>(count));
    record.setText(text.toUtf8().constData());
    return record;
}

} // namespace

bool RepeatSuppression::admit(const PocoMessage& record, const QByteArray& sourceFile, const RepeatLimits& limits)
{
    Lock lock(mutex);
    const auto known = counts.find(record);
    if (known != counts.end()) {
        const int count = known.value();
        constexpr quint32 countLimit = std::numeric_limits<int>::max();
        if (static_cast<quint32>(count) < std::min(limits.repeats, countLimit)) {
            ++known.value();
            lock.unlock();
            return false;
        }
        const qsizetype position = pending.indexOf(record);
        pending.removeAt(position);
        files.removeAt(position);
        counts.erase(known);
        lock.unlock();
        writeSummary(record, count);
        return true;
    }

    remember(record, sourceFile);
    if (static_cast<quint64>(pending.size()) <= limits.remembered) {
        lock.unlock();
        return true;
    }
    const PocoMessage oldest = pending.takeFirst();
    const QByteArray oldestFile = files.takeFirst(); // the summary points to it
    const int count = counts.take(oldest);
    lock.unlock();
    if (count > 0)
        writeSummary(oldest, count);
    return true;
}

/// A summary that there is no memory for is counted as lost, and the records behind it are written.
void RepeatSuppression::writeSummary(const PocoMessage& record, int count)
{
    std::optional<PocoMessage> summary;
    try {
        summary = summaryOf(record, count);
    } catch (const std::bad_alloc&) {
        return logger.loseRecord(record.getPriority());
    }
    ChainUse use(*logger.access);
    logger.write(use, *summary);
}

/// Leaves everything as it was when it throws. The caller holds `mutex`.
void RepeatSuppression::remember(const PocoMessage& record, const QByteArray& sourceFile)
{
    pending.append(record);
    try {
        files.append(sourceFile);
        counts.insert(record, 0);
    } catch (...) {
        pending.removeLast();
        files.resize(pending.size());
        throw;
    }
}

void RepeatSuppression::flush()
{
    Lock lock(mutex);
    const QList<PocoMessage> records = std::exchange(pending, {});
    const QMap<PocoMessage, int> repeats = std::exchange(counts, {});
    const QList<QByteArray> names = std::exchange(files, {}); // the records point to them
    lock.unlock();

    for (const PocoMessage& record : records) {
        if (const int count = repeats.value(record); count > 0)
            writeSummary(record, count);
    }
}

/// The parent's repeats are its own to summarise.
void RepeatSuppression::renewInChild()
{
    pending.clear();
    counts.clear();
    files.clear();
    new (&mutex) Poco::Mutex; // knows its owner by a number that the child's thread does not have
}

} // namespace Zyr
