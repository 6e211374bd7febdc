#include "rendering/LocaleNumbers.h"

namespace Zyr {
namespace {

void appendText(const QString& text, LineBuffer& to)
{
    const QByteArray utf8 = text.toUtf8();
    to.append({utf8.constData(), std::size_t(utf8.size())});
}

} // namespace

LocaleNumbers::LocaleNumbers() = default;

void LocaleNumbers::update()
{
    locale = QLocale();
}

void LocaleNumbers::append(qint64 number, LineBuffer& to) const
{
    appendText(locale.toString(number), to);
}

void LocaleNumbers::append(quint64 number, LineBuffer& to) const
{
    appendText(locale.toString(number), to);
}

void LocaleNumbers::append(double number, LineBuffer& to) const
{
    appendText(locale.toString(number, 'g', 6), to);
}

} // namespace Zyr
