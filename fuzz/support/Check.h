#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// Ends the program with a finding if a property does not hold, and prints it. `details` are shown with everything but
/// plain ASCII escaped.
void check(bool holds, const char* property, const QByteArray& details = {});

/// The same for two texts that should be equal.
void checkEqual(const QByteArray& found, const QByteArray& expected, const char* property);
