// What happens in the station, tick by tick, and how it is logged.

#include "PumpStation.h"

#include <chrono>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

PumpStation::PumpStation()
    : valve(u"Valve"_s)
    , motor(u"Motor"_s)
    , stationView(log, u"main"_s)
    , valveView(valve.getLogger(), u"Valve"_s)
    , motorView(motor.getLogger(), u"Motor"_s)
{
    clock.callOnTimeout([this] { tick(); });
    log.out(Zyr::System, u"Pump station starts"_s).endl();
}

void PumpStation::run(int ticks, std::function<void()> done)
{
    end = now + ticks;
    whenDone = std::move(done);
    clock.start(40ms);
}

void PumpStation::tick()
{
    const QString tank = u"tank"_s;
    const QString pump = u"pump"_s;

    measureMotors();
    if (isDue(25, 0))
        log.out(Zyr::Info, u"Tank %tank holds %1 litres"_s).arg(48250 + 37 * now).topic(tank, u"T1"_s).endl();
    if (isDue(25, 8))
        log.out(Zyr::Debug, u"Pump %pump: speed set to %1 %"_s).arg(60 + now % 30).topic(pump, u"P1"_s).endl();
    if (isDue(50, 16))
        log.out(Zyr::Notice, u"Door %1 opened"_s).arg(2).endl();
    if (isDue(50, 20))
        valve.cLogNotice(u"Valve moves to %1 %"_s).arg(now % 100).endl();
    if (isDue(150, 70))
        valve.cLogError(u"Valve is jammed: %1 N on the spindle"_s).arg(1875).endl();
    if (isDue(75, 40)) {
        for (int i = 0; i < 8; ++i)
            log.out(Zyr::Warning, u"Pump %pump: suction pressure is low"_s).topic(pump, u"P2"_s).endl();
    }
    if (isDue(300, 270))
        log.out(Zyr::Emerg, u"Pump %pump runs dry"_s, __FILE__, __LINE__).topic(pump, u"P2"_s).endl();

    if (++now < end)
        return;
    clock.stop();
    whenDone();
}

void PumpStation::measureMotors()
{
    const double load = 0.5 + 0.4 * std::sin(now / 20.0);
    const double temperature = 48 + 20 * load;
    for (const int number : {1, 2})
        motor.cLogTrace(u"Motor M%1: %2 rpm, %3 A, %4 °C, vibration %5 mm/s"_s)
            .arg(number)
            .arg(1450 + int(60 * load))
            .arg(8.2 + 6 * load)
            .arg(temperature)
            .arg(number + load)
            .endl();
    if (isDue(100, 60))
        motor.cLogWarning(u"Motor M%1 is warm: %2 °C"_s).arg(1).arg(temperature).endl();
}
