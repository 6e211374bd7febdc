// The record that every library writes: "pump 12 on line Northern intake main has a pressure of 1.512 bar".

#pragma once

#include <QtCore/QString>

#include <cstddef>

namespace Bench::Record {

/// Few digits, so that %g, the locale and the shortest exact form write the same.
inline double pressure(int number)
{
    return double(1500 + number % 1000) / 1000;
}

class Lines
{
public:
    const QString& of(int number) const { return names[static_cast<std::size_t>(number) % std::size(names)]; }

private:
    const QString names[4] = {QStringLiteral("Northern intake main"), QStringLiteral("Southern outlet pipe"),
                              QStringLiteral("Reservoir feed No. 3"), QStringLiteral("Filter bank bypass A")};
};

} // namespace Bench::Record
