#pragma once

#include "base/LineBuffer.h"
#include "text/NumberWriter.h"

#include <QtCore/QLocale>

namespace Zyr {

/// Numbers as the default locale writes them: what QLocale().toString() gives, in UTF-8. For one thread at a time.
///
/// It writes them itself, with symbols derived from the locale, which takes a fraction of the time. Where a comparison
/// shows that a locale writes otherwise, or a number is not for it to round, it asks the locale.
class LocaleNumbers
{
public:
    LocaleNumbers();

    /// Takes over the default locale as it is now; cheap while it has not changed.
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
