#pragma once

#include <ZyrLogger/Logger.h>

/// Shows a logger's records on standard output as they are written, coloured by level.
///
/// Records of level trace are left to the log file: the motors alone would fill the screen with them.
class LiveView : public Zyr::Logger::LogListener
{
public:
    LiveView(Zyr::Logger& watchedLogger, QString shownName);
    ~LiveView() override;

    void handleMessage(QString priority, QString time, QString text) override;

private:
    Q_DISABLE_COPY_MOVE(LiveView)

    Zyr::Logger& logger;
    const QString name;
};
