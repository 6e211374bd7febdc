#pragma once

#include "chain/format/LineBuffer.h"

#include <QtCore/QLocale>

namespace Zyr {

/// Numbers as the default locale writes them: what QLocale().toString() gives, in UTF-8. For one thread at a time.
class LocaleNumbers
{
public:
    LocaleNumbers();

    /// Takes over the default locale as it is now; cheap while it has not changed.
    void update();

    void append(qint64 number, LineBuffer& to) const;
    void append(quint64 number, LineBuffer& to) const;
    void append(double number, LineBuffer& to) const;

private:
    QLocale locale;
};

} // namespace Zyr
