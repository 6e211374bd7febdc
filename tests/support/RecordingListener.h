#pragma once

#include <ZyrLogger/Logger.h>

#include <QtCore/QList>
#include <QtCore/QStringList>

#include <mutex>

/// Keeps what a logger hands to its listeners. Registered for as long as it lives.
class RecordingListener : public Zyr::Logger::LogListener
{
public:
    struct Record
    {
        QString priority;
        QString time;
        QString text;
        QString line;
    };

    explicit RecordingListener(Zyr::Logger& observed);
    ~RecordingListener() override;
    RecordingListener(const RecordingListener&) = delete;
    RecordingListener& operator=(const RecordingListener&) = delete;

    void handleMessage(QString priority, QString time, QString text) override;
    void handleFormatedMessage(QString line) override;

    QList<Record> records() const;
    QStringList texts() const;

    /// texts() so far, which are forgotten.
    QStringList takeTexts();

private:
    Zyr::Logger& logger;
    mutable std::mutex recordsMutex;
    QList<Record> received;
};
