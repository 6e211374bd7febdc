#pragma once

#include "base/LineBuffer.h"
#include "text/NumberWriter.h"

#include <QtCore/QLocale>

namespace Zyr {

/// Numbers as the default locale writes them: what QLocale().toString() gives, in UTF-8. For one thread at a time.
///
/// Writes them itself, with symbols derived from the locale, in a fraction of the time. Asks QLocale where a comparison
/// shows that the locale writes otherwise, and for numbers that SixDigits cannot round.
class LocaleNumbers
{
public:
    LocaleNumbers();

    /// Adopts the current default locale; cheap while it has not changed.
    void update();

    void append(qint64 number, LineBuffer& to) const;  // as toString(qlonglong)
    void append(quint64 number, LineBuffer& to) const; // as toString(qulonglong)
    void append(double number, LineBuffer& to) const;  // as toString(double, 'g', 6)

    /// Whether these are written without asking the locale.
    bool writesIntegers() const noexcept { return integers; }
    bool writesDoubles() const noexcept { return doubles; }

private:
    void compare();

    QLocale locale;
    NumberWriter writer;
    bool integers = false;
    bool doubles = false;
};

} // namespace Zyr
