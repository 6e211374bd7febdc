#pragma once

#include <ZyrLogger/Logger.h>

#include <mutex>

/// Keeps the records that a logger hands to it while it lives.
class RecordingListener : public Zyr::Logger::LogListener
{
public:
    explicit RecordingListener(Zyr::Logger& observed)
        : logger(observed)
    {
        logger.registerLogListener(this);
    }
    ~RecordingListener() override { logger.unregisterLogListener(this); }

    /// Priority and text of each.
    QStringList records() const
    {
        const std::lock_guard lock(mutex);
        return received;
    }

private:
    void handleMessage(QString priority, QString, QString text) override
    {
        const std::lock_guard lock(mutex);
        received += priority + u' ' + text;
    }

    Zyr::Logger& logger;
    mutable std::mutex mutex;
    QStringList received;
};
