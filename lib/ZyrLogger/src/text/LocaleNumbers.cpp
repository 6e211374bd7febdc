// Numbers by the default locale, written without QLocale wherever a comparison shows that both agree.

#include "text/LocaleNumbers.h"

#include "text/DecimalDigits.h"

#include <cmath>
#include <limits>

namespace Zyr {

namespace {

QByteArray ask(const QLocale& locale, qint64 number)
{
    return locale.toString(number).toUtf8();
}

QByteArray ask(const QLocale& locale, quint64 number)
{
    return locale.toString(number).toUtf8();
}

QByteArray ask(const QLocale& locale, double number)
{
    return locale.toString(number, 'g', 6).toUtf8();
}

std::string_view viewOf(const QByteArray& text)
{
    return {text.constData(), std::size_t(text.size())};
}

} // namespace

LocaleNumbers::LocaleNumbers()
{
    integers = doubles = writer.use(locale);
    if (integers)
        compare();
}

void LocaleNumbers::update()
{
    if (QLocale() != locale)
        *this = LocaleNumbers(); // in one step: unchanged if memory runs out while the new one is made
}

void LocaleNumbers::append(qint64 number, LineBuffer& to) const
{
    if (!integers)
        return to.append(viewOf(ask(locale, number)));
    const bool negative = number < 0;
    to.extendTo(writer.write(negative ? 0 - quint64(number) : quint64(number), negative, to.room(writer.room())));
}

void LocaleNumbers::append(quint64 number, LineBuffer& to) const
{
    if (!integers)
        return to.append(viewOf(ask(locale, number)));
    to.extendTo(writer.write(number, false, to.room(writer.room())));
}

void LocaleNumbers::append(double number, LineBuffer& to) const
{
    SixDigits rounded;
    if (doubles && rounded.round(number))
        to.extendTo(writer.write(rounded, number < 0, to.room(writer.room())));
    else if (doubles && number == 0 && !std::signbit(number))
        to.extendTo(writer.writeZero(to.room(writer.room())));
    else
        to.append(viewOf(ask(locale, number)));
}

/// With integers of every length, since locales differ in how they group digits.
void LocaleNumbers::compare()
{
    const auto same = [this](auto number) {
        LineBuffer line;
        append(number, line);
        return line.view() == viewOf(ask(locale, number));
    };
    for (quint64 number = std::numeric_limits<quint64>::max(); number > 0; number /= 10)
        integers = integers && same(number) && same(-qint64(number / 2));
    for (const double number : {0.0, 0.5, 0.0001234, -1.0, 12.0, 123.25, 1234.0, -12345.5, 123456.0, 1e6, -1.25e-7,
                                1e22, -1.5e-22, 1.75e123, 3e-234})
        doubles = doubles && same(number);
}

} // namespace Zyr
