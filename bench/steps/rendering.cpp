// From a message to its text, and from a number to its digits.

#include "Steps.h"

#include "text/LocaleNumbers.h"
#include "text/TextRenderer.h"

#include <ZyrLogger/LogMessage.h>

#include <QtCore/QLocale>

#include <benchmark/benchmark.h>

#include <array>
#include <memory>

namespace {

using benchmark::State;
using Message = std::unique_ptr<Zyr::LogMessage>;

Message message(const QString& text)
{
    return std::make_unique<Zyr::LogMessage>(Zyr::Info, text);
}

Message plain()
{
    return message(QStringLiteral("The pressure of the pump is what it should be"));
}

Message standard()
{
    Message made = message(Bench::standardText);
    static_cast<void>(made->arg(1012).arg(Bench::lines.of(0)).arg(1.512));
    return made;
}

Message nonAscii()
{
    Message made = message(QStringLiteral(u"Pumpe %1 in %2: Überdruck im Zulauf, %3 bar (größer als zulässig)"));
    static_cast<void>(made->arg(1012).arg(QStringLiteral(u"Nördliche Straße")).arg(1.512));
    return made;
}

Message withEscapes()
{
    Message made = message(QStringLiteral("Cannot read \"%1\":\nline %2 of %3 is no number"));
    static_cast<void>(made->arg(QStringLiteral(R"(C:\data\pump "12".csv)")).arg(1012).arg(2048));
    return made;
}

Message withTopics()
{
    Message made = message(QStringLiteral("pump %pump on line %line has a pressure of %pressure bar"));
    static_cast<void>(made->topic(QStringLiteral("pump"), 1012)
                          .topic(QStringLiteral("line"), Bench::lines.of(0))
                          .topic(QStringLiteral("pressure"), 1.512));
    return made;
}

void render(State& state, Message (*make)())
{
    const Message made = make();
    std::optional<Zyr::LocaleNumbers> numbers;
    Zyr::LineBuffer line;
    for (auto _ : state) {
        Bench::leaveVectorRegistersDirty();
        line.clear();
        if (!Zyr::renderText(*made, numbers, line))
            return state.SkipWithError("only the literal steps render this");
        benchmark::DoNotOptimize(line.view().data());
    }
}

void renderLiterally(State& state, Message (*make)())
{
    const Message made = make();
    for (auto _ : state) {
        const QByteArray text = made->getStr().toUtf8();
        benchmark::DoNotOptimize(text.constData());
    }
}

#define RENDERING(make, name)                                                                                          \
    BENCHMARK_CAPTURE(render, make, make)->Name("Text, " name);                                                        \
    BENCHMARK_CAPTURE(renderLiterally, make, make)->Name("Text, " name ": getStr().toUtf8()")

RENDERING(plain, "plain");
RENDERING(standard, "three arguments");
RENDERING(nonAscii, "three arguments, not ASCII");
RENDERING(withEscapes, "three arguments, escapes");
RENDERING(withTopics, "three topics");

/// Similar lengths, varied so that the branch predictor cannot learn them entirely.
template <typename Number>
std::array<Number, 1024> numbersFrom(Number first)
{
    std::array<Number, 1024> all;
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = first + Number(double(i) * 1.125);
    return all;
}

template <typename Number>
void write(State& state, const char* localeName, Number first)
{
    const QLocale before;
    QLocale::setDefault(QLocale(QLatin1String(localeName)));
    const Zyr::LocaleNumbers numbers;
    QLocale::setDefault(before);
    const auto all = numbersFrom(first);
    std::size_t place = 0;
    Zyr::LineBuffer line;
    for (auto _ : state) {
        line.clear();
        numbers.append(all[place++ % all.size()], line);
        benchmark::DoNotOptimize(line.view().data());
    }
}

template <typename Number>
void writeByQt(State& state, const char* localeName, Number first)
{
    const QLocale locale{QLatin1String(localeName)};
    const auto all = numbersFrom(first);
    std::size_t place = 0;
    for (auto _ : state) {
        const QByteArray text = locale.toString(all[place++ % all.size()]).toUtf8();
        benchmark::DoNotOptimize(text.constData());
    }
}

#define NUMBERS(locale)                                                                                                \
    BENCHMARK_CAPTURE(write, locale, #locale, qint64(1234567))->Name("Integer, " #locale);                             \
    BENCHMARK_CAPTURE(writeByQt, locale, #locale, qint64(1234567))->Name("Integer, " #locale ": QLocale");             \
    BENCHMARK_CAPTURE(write, locale, #locale, 1234.512)->Name("Double, " #locale);                                     \
    BENCHMARK_CAPTURE(writeByQt, locale, #locale, 1234.512)->Name("Double, " #locale ": QLocale")

NUMBERS(C);
NUMBERS(en_US);
NUMBERS(de_DE);

} // namespace
