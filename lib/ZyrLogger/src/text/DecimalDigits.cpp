// Decimal digits of integers, and of doubles rounded to six digits without the exact arithmetic that few of them need.

#include "text/DecimalDigits.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstring>

namespace Zyr {

namespace {

/// "00" to "99".
constexpr auto pairs = [] {
    std::array<char, 200> result{};
    for (std::size_t number = 0; number < 100; ++number) {
        result[2 * number] = char('0' + number / 10);
        result[2 * number + 1] = char('0' + number % 10);
    }
    return result;
}();

constexpr auto powers = [] {
    std::array<quint64, 20> result{};
    quint64 power = 1;
    for (quint64& entry : result) {
        entry = power;
        power *= 10;
    }
    return result;
}();

/// Ten to the powers from -22 to 22. A double holds those from 0 to 22 exactly.
constexpr int exactPowers = 22;
constexpr auto doublePowers = [] {
    std::array<double, 2 * exactPowers + 1> result{};
    double power = 1;
    for (int exponent = 0; exponent <= exactPowers; ++exponent) {
        result[std::size_t(exactPowers + exponent)] = power;
        result[std::size_t(exactPowers - exponent)] = 1 / power;
        power *= 10;
    }
    return result;
}();

void writePair(quint32 number, char* to) noexcept
{
    std::memcpy(to, &pairs[2 * std::size_t(number)], 2);
}

double timesPowerOfTen(double number, int power) noexcept
{
    for (; power > exactPowers; power -= exactPowers)
        number *= 1e22;
    for (; power < -exactPowers; power += exactPowers)
        number *= 1e-22;
    return number * doublePowers[std::size_t(power + exactPowers)];
}

} // namespace

int countDigits(quint64 number) noexcept
{
    // 1233/4096 approximates log10(2), precisely enough for 64 bits.
    const int estimate = (int(std::bit_width(number | 1)) * 1233) >> 12;
    return estimate + int((number | 1) >= powers[std::size_t(estimate)]);
}

void writeDigits(quint64 number, char* end) noexcept
{
    // 64-bit divisions are slow on 32-bit machines: one for every eight digits.
    for (; number > 0xffff'ffffU; number /= 100'000'000) {
        auto eight = quint32(number % 100'000'000);
        for (int pair = 0; pair < 4; ++pair, eight /= 100)
            writePair(eight % 100, end -= 2);
    }
    auto rest = quint32(number);
    for (; rest >= 100; rest /= 100)
        writePair(rest % 100, end -= 2);
    if (rest >= 10)
        writePair(rest, end - 2);
    else
        end[-1] = char('0' + rest);
}

bool SixDigits::round(double number) noexcept
{
    constexpr int bias = 1023, special = 2047;
    const int binary = int(std::bit_cast<quint64>(number) >> 52) & special;
    if (binary == 0 || binary == special)
        return false;

    // The binary exponent times log10(2), rounded down, is the decimal exponent or one less.
    exponent = int((qint64(binary - bias) * 1'292'913'986) >> 32);
    double scaled = timesPowerOfTen(std::abs(number), 5 - exponent);
    if (scaled >= 1e6)
        scaled = timesPowerOfTen(std::abs(number), 5 - ++exponent);

    // Up to 16 multiplications by rounded powers add up to an error below 1e-8.
    constexpr double tolerance = 1e-6;
    auto rounded = quint32(scaled);
    const double rest = scaled - rounded;
    if (std::abs(rest - 0.5) < tolerance)
        return false;
    rounded += rest > 0.5;
    if (rounded == 1'000'000) {
        rounded = 100'000;
        ++exponent;
    }

    writePair(rounded / 10'000, digits);
    writePair(rounded / 100 % 100, digits + 2);
    writePair(rounded % 100, digits + 4);
    count = 6;
    while (digits[count - 1] == '0')
        --count;
    return true;
}

} // namespace Zyr
