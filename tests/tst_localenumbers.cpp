// Numbers in lines are those of the default locale: every locale and every number option against QLocale itself.

#include "text/LocaleNumbers.h"

#include <QtTest/QtTest>

#include <bit>
#include <cmath>
#include <random>

using namespace Qt::StringLiterals;

/// Numbers written in a way of their own, rounded to another length, or (nearly) halfway between two roundings.
static const QByteArray edges =
    "0 -0 1 -1 0.5 -12.25 1234 12345 123456 -123456.25 1234567 100000.5 100001.5 999999.5 999999.4 1000.125 121.0625 "
    "-2.0000005 2.0000015 1.000005 1.000015 9.999995 0.0001 0.00012345675 0.00009999995 0.00001 1e5 1e6 1e7 1e10 1e-10 "
    "-1e22 1.5e23 1e99 1e100 -1e-100 1.797693134862315e308 2.2250738585072014e-308 2.2e-308 5e-324 inf -inf nan";

/// The first number that differs from the locale's own text. All go into one line, which grows.
static QByteArray difference(const Zyr::LocaleNumbers& numbers, const QLocale& locale, std::vector<double> doubles = {})
{
    Zyr::LineBuffer line;
    QByteArray result;
    const auto compare = [&](auto number, const QString& right) {
        const std::size_t before = line.view().size();
        numbers.append(number, line);
        const std::string text(line.view().substr(before));
        if (text != right.toStdString() && result.isEmpty())
            result = locale.name().toUtf8() + ": " + text.c_str() + " instead of " + right.toUtf8();
    };
    for (quint64 sevens = 7, nines = 9; nines != 0; sevens *= 10, nines = nines > ~0ULL / 10 ? 0 : nines * 10 + 9) {
        for (const quint64 number : {sevens, nines, nines + 1, ~0ULL / nines, ~0ULL, 0ULL}) {
            compare(number, locale.toString(number));
            compare(-qint64(number / 2), locale.toString(-qint64(number / 2)));
        }
    }
    for (const qint64 number : {std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max()})
        compare(number, locale.toString(number));
    for (const QByteArray& text : edges.split(' '))
        doubles.push_back(text.toDouble());
    for (const double number : doubles)
        compare(number, locale.toString(number, 'g', 6));
    return result;
}

class tst_LocaleNumbers : public QObject
{
    Q_OBJECT

    std::mt19937_64 random{20240229};

    /// Any bits, decimal fractions, and those with a 5 after six digits.
    std::vector<double> randomDoubles(int count)
    {
        std::vector<double> result;
        for (; count > 0; --count) {
            const double power = std::pow(10, int(random() % 12));
            result.push_back(std::bit_cast<double>(random()));
            result.push_back(double(qint64(random()) >> (random() % 60)) / power);
            result.push_back(double(random() % 900'000 * 10 + 1'000'005) / power);
            result.push_back(result.back() * std::pow(10, int(random() % 600) - 300));
        }
        return result;
    }

private Q_SLOTS:
    // A separator, sign, exponent, group or digit that is some locales' and not all's; too little room for it in the
    // line; every number asked of QLocale, which is right but slow.
    void everyLocale()
    {
        const auto all = QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyCountry);
        qsizetype writing = 0;
        for (const QLocale& locale : all) {
            QLocale::setDefault(locale);
            const Zyr::LocaleNumbers numbers;
            QCOMPARE(difference(numbers, locale, randomDoubles(10)), QByteArray());
            writing += numbers.writesIntegers() && numbers.writesDoubles();
        }
        qInfo("%d of %d locales need not be asked", int(writing), int(all.size()));
        QVERIFY(all.size() > 100 && writing >= all.size() * 99 / 100);
    }

    // Zeroes that an option adds or leaves out, groups that one turns on in C and off elsewhere; the symbols of the
    // locale before, or its options where nothing else changes.
    void everyNumberOptionAfterUpdate()
    {
        Zyr::LocaleNumbers numbers;
        for (const char* name : {"C", "en_US", "es_ES", "hi_IN", "ar_EG", "fa_IR", "ccp_BD", "ff_Adlm_GN"}) {
            for (int options = 0; options < 64; ++options) {
                QLocale locale{QLatin1String(name)};
                locale.setNumberOptions(QLocale::NumberOptions(options));
                QLocale::setDefault(locale);
                numbers.update();
                QCOMPARE(difference(numbers, locale), QByteArray());
            }
        }
    }

    // A decimal exponent that is one out, next to powers of ten; inexact rounding in the last of the six digits.
    void everyMagnitude()
    {
        std::vector<double> values = randomDoubles(5'000);
        for (int exponent = -323; exponent <= 308; ++exponent) {
            const double power = QByteArray("1e" + QByteArray::number(exponent)).toDouble();
            values.insert(values.end(), {power, std::nextafter(power, 0), std::nextafter(power, 1e308), -9.9 * power});
        }
        QLocale::setDefault(QLocale::c());
        QCOMPARE(difference({}, QLocale::c(), values), QByteArray());
    }

    // The symbols of the system's language where its numbers are another country's.
    void mixedSystemLocale()
    {
        QLocale::setDefault(QLocale::system());
        QCOMPARE(QLocale().name() + QLocale().decimalPoint() + QLocale().groupSeparator(), u"en_US,."_s);
        QCOMPARE(difference({}, QLocale()), QByteArray());
    }
};

int main(int count, char* words[])
{
    qunsetenv("LC_ALL"); // Qt reads these once, when it needs them first
    qputenv("LANG", "en_US.UTF-8");
    qputenv("LC_NUMERIC", "de_DE.UTF-8");
    tst_LocaleNumbers test;
    const QCoreApplication application(count, words);
    return QTest::qExec(&test, count, words);
}

#include "tst_localenumbers.moc"
