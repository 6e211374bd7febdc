// Numbers put together from ASCII digits and a locale's symbols, by copies of constant size, which are the fastest.

#include "text/NumberWriter.h"

#include "text/DecimalDigits.h"

#include <algorithm>
#include <cstdlib>

namespace Zyr {

namespace {

constexpr int maxDigits = 20; // of 64 bits

/// How many ASCII digits each copy takes, needed or not.
constexpr int chunk = 8;

constexpr char zeroes[2 * chunk + 1] = "0000000000000000";

} // namespace

bool NumberWriter::use(const QLocale& locale)
{
    if (!symbols.deriveFrom(locale))
        return false;
    maxBytes = std::size_t(
        symbols.minus.size + maxDigits * (symbols.digitSize + symbols.groupSeparator.size) + symbols.decimalPoint.size +
        std::max(symbols.positiveExponent.size, symbols.negativeExponent.size) + Symbol::capacity + chunk);
    if (symbols.groupedFrom == NumberSymbols::never)
        return true;
    return symbols.lastGroup > 0 && symbols.lastGroup < symbols.groupedFrom && symbols.lastGroup <= chunk &&
           symbols.otherGroups > 0 && symbols.firstGroup <= symbols.otherGroups && 2 * symbols.otherGroups <= chunk;
}

char* NumberWriter::write(quint64 number, bool negative, char* to) const noexcept
{
    if (negative)
        to = symbols.minus.writeTo(to);
    const int count = countDigits(number);
    if (symbols.asciiDigits && count < symbols.groupedFrom) {
        Zyr::writeDigits(number, to + count);
        return to + count;
    }
    char ascii[maxDigits + chunk];
    Zyr::writeDigits(number, ascii + count);
    return writeGrouped(ascii, count, to);
}

char* NumberWriter::write(const SixDigits& number, bool negative, char* to) const noexcept
{
    if (negative)
        to = symbols.minus.writeTo(to);
    const bool scientific = number.exponent < -4 || number.exponent > 5;
    int whole = 1; // digits before the decimal point
    if (scientific) {
        to = writeDigits(number.digits, 1, to);
    } else if (number.exponent < 0) {
        whole = 0;
        to = symbols.decimalPoint.writeTo(writeZero(to));
        to = writeDigits(zeroes, -number.exponent - 1, to);
        return writeDigits(number.digits, number.count, to);
    } else {
        whole = number.exponent + 1;
        to = writeGrouped(number.digits, whole, to);
    }
    if (number.count > whole) {
        to = symbols.decimalPoint.writeTo(to);
        to = writeDigits(number.digits + whole, number.count - whole, to);
    }
    return scientific ? writeExponent(number.exponent, to) : to;
}

char* NumberWriter::writeZero(char* to) const noexcept
{
    return writeDigits(zeroes, 1, to);
}

char* NumberWriter::writeExponent(int exponent, char* to) const noexcept
{
    to = (exponent < 0 ? symbols.negativeExponent : symbols.positiveExponent).writeTo(to);
    const int magnitude = std::abs(exponent);
    if (magnitude < 10 && symbols.twoDigitExponent)
        to = writeZero(to);
    char ascii[maxDigits];
    const int count = countDigits(quint64(magnitude));
    Zyr::writeDigits(quint64(magnitude), ascii + count);
    return writeDigits(ascii, count, to);
}

char* NumberWriter::writeGrouped(const char* ascii, int count, char* to) const noexcept
{
    if (count < symbols.groupedFrom)
        return writeDigits(ascii, count, to);
    const int ahead = count - symbols.lastGroup;
    int group = (ahead - 1) % symbols.otherGroups + 1;
    if (group < symbols.firstGroup)
        group += symbols.otherGroups;
    for (int done = 0; done < ahead; done += group, group = symbols.otherGroups) {
        to = writeDigits(ascii + done, group, to);
        to = symbols.groupSeparator.writeTo(to);
    }
    return writeDigits(ascii + ahead, symbols.lastGroup, to);
}

char* NumberWriter::writeDigits(const char* ascii, int count, char* to) const noexcept
{
    if (symbols.asciiDigits) {
        std::memcpy(to, ascii, chunk);
        return to + count;
    }
    for (int digit = 0; digit < count; ++digit, to += symbols.digitSize)
        std::memcpy(to, symbols.digits[ascii[digit] - '0'], sizeof symbols.digits[0]);
    return to;
}

} // namespace Zyr
