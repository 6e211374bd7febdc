#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// Ends the program where a property does not hold, which is a finding, and says which one. `details` are shown with
/// everything but plain ASCII escaped.
void check(bool holds, const char* property, const QByteArray& details = {});

/// Two texts that should be the same.
void checkEqual(const QByteArray& found, const QByteArray& expected, const char* property);
