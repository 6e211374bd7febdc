#pragma once

#include "LiveView.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtCore/QTimer>

#include <functional>

/// A small pump station: a tank, two pumps with their motors, and a valve. It lives on a clock of 40 ms and logs what
/// happens: the station's own events through the main logger, the valve's and the motors' through loggers of their own.
class PumpStation
{
public:
    PumpStation();

    /// Runs for that many ticks of the clock, then calls `done`.
    void run(int ticks, std::function<void()> done);

private:
    void tick();
    void measureMotors();
    bool isDue(int period, int offset) const { return now % period == offset; }

    Zyr::Logger& log = Zyr::Logger::instance();
    Zyr::ClassLogger valve;
    Zyr::ClassLogger motor;
    LiveView stationView;
    LiveView valveView;
    LiveView motorView;

    QTimer clock;
    int now = 0;
    int end = 0;
    std::function<void()> whenDone;
};
