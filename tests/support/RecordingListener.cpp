#include "RecordingListener.h"

RecordingListener::RecordingListener(Zyr::Logger& observed)
    : logger(observed)
{
    logger.registerLogListener(this);
}

RecordingListener::~RecordingListener()
{
    logger.unregisterLogListener(this);
}

void RecordingListener::handleMessage(QString priority, QString time, QString text)
{
    const std::lock_guard lock(recordsMutex);
    received.append({priority, time, text, {}});
}

void RecordingListener::handleFormatedMessage(QString line)
{
    const std::lock_guard lock(recordsMutex);
    received.last().line = line;
}

QList<RecordingListener::Record> RecordingListener::records() const
{
    const std::lock_guard lock(recordsMutex);
    return received;
}

QStringList RecordingListener::texts() const
{
    QStringList texts;
    for (const Record& record : records())
        texts.append(record.text);
    return texts;
}

QStringList RecordingListener::takeTexts()
{
    const QStringList taken = texts();
    const std::lock_guard lock(recordsMutex);
    received.clear();
    return taken;
}
