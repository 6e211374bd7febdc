#pragma once

#include <ZyrLogger/Logger.h>

#include <QtCore/QMap>

#include <functional>

/// Changes the main logger's settings file as somebody at a text editor would, and sees in the log that it took effect.
class Operator : public Zyr::Logger::LogListener
{
public:
    explicit Operator(QString fileToEdit);
    ~Operator() override;

    /// Gives the keys, which must be in the file, new values and saves it. Calls `applied` from the event loop once the
    /// logger says that it works with them; ends the application with an error when it does not within ten seconds.
    void edit(const QMap<QString, QString>& changes, std::function<void()> applied);

    void handleMessage(QString priority, QString time, QString text) override;

private:
    Q_DISABLE_COPY_MOVE(Operator)

    const QString settingsFile;
    std::function<void()> whenApplied;
};
