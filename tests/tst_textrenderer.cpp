// The text of a message in one pass: it equals what the steps give, or is left to them.

#include "text/TextRenderer.h"

#include <ZyrLogger/LogMessage.h>

#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

using namespace Qt::StringLiterals;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int rounds = 40'000;
#else
constexpr int rounds = 200'000;
#endif

class tst_TextRenderer : public QObject
{
    Q_OBJECT
    std::optional<Zyr::LocaleNumbers> numbers;

    /// Whether one pass was enough, and whether it gave the text of the steps or, if not, nothing.
    std::pair<bool, bool> render(Zyr::LogMessage& message)
    {
        Zyr::LineBuffer line;
        line.append("kept ");
        const bool once = Zyr::renderText(message, numbers, line);
        return {once, line.view() == "kept " + (once ? message.getStr().toUtf8() : QByteArray()).toStdString()};
    }

private Q_SLOTS:
    // More bytes written than there is room for.
    void fillsAnyLine()
    {
        Zyr::LogMessage message(0, QString(127, u'\u6f22') + u"\U0001F600"_s);
        const std::string text = message.getStr().toStdString();
        for (std::size_t before = 0; before < 1100; ++before) {
            const auto line = std::make_unique<Zyr::LineBuffer>(); // behind which a sanitizer looks
            line->append(std::string(before, '='));
            QVERIFY(Zyr::renderText(message, numbers, *line) && line->view().substr(before) == text);
        }
    }

    void rendersOnceWhatItCan()
    {
        QLocale::setDefault(QLocale(u"de_DE"_s));
        const auto row = [&](const QString& text, const QVariantList& args, const QVariantMap& topics, bool once) {
            Zyr::LogMessage message(0, text);
            message.args = args.isEmpty() ? nullptr : new QVariantList(args);
            message.topics = topics.isEmpty() ? nullptr : new QVariantMap(topics);
            QVERIFY2(render(message) == std::pair(once, true), qUtf8Printable(text.left(40)));
        };
        const QVariantList none, a = {u"a"_s}, ab = {u"a"_s, u"b"_s}, many(12, u"0"_s);
        const QVariantMap x = {{u"x"_s, u"1"_s}, {u"xy"_s, 2}};

        // A plain text that is cut, at a vector's end or at a piece's; one that is always left to the steps.
        for (int size = 0; size < 2000; ++size)
            row(QString(size, u'x'), none, x, true);
        row(u"100%"_s, a, x, true);
        row(u"100% of 100%% %"_s, a, x, true);
        // Another placeholder's value, or that of a number which is none; a number or QVariant's text of another type.
        row(u"%1 %2 %3 %01 %0 %12"_s, ab, {}, true);
        row(u"%12 %13 %012 %120 %1"_s, many, {}, true);
        row(u"%1 %2 %3 %4 %5 %6"_s, {-1234567, 1234567u, -5'000'000'000LL, ~0ull, 1234567.5, true}, {}, true);
        row(u"%1 %2 %3 %4"_s, {1e15f, QChar(u'\u00e9'), QVariant(), QVariant::fromValue(-1234567L)}, {}, true);
        // The longer key; a key before a number; a topic's number by the locale.
        row(u"%xy %x %y %1x"_s, a, x, true);
        row(u"%1 %2"_s, a, {{u"1"_s, u"topic"_s}, {u"2"_s, u"topic"_s}}, true);
        row(u"%a %b %c %d"_s, none, {{u"a"_s, -1234567}, {u"b"_s, ~0u}, {u"c"_s, LLONG_MIN}, {u"d"_s, ~0ull}}, true);
        row(u"%a"_s, none, {{u"a"_s, 1234567.5}}, true);
        // A character escaped wrongly anywhere in a vector, or encoded wrongly, or more bytes than there is room for.
        for (const QString& text :
             u"\\|\"|\r|\n|\t\u007f|\u00e9|\u07ff\u0800|\ufeff\uffff|\U0001f600|\U0010ffff"_s.split(u'|'))
            for (int before : {0, 1, 7, 8, 127, 128})
                row(QString(before, u'-') + text.repeated(300) + u"--------%1"_s, {text + text}, {}, true);
        // A name that the value behind completes in the steps.
        row(u"%%2"_s, {u"a"_s, u"1"_s}, {}, false);
        row(u"%%1"_s, {u"x"_s}, x, false);
        row(u"%%x"_s, {u"x"_s}, x, false);
        row(u"%a%1"_s, {u"b"_s}, {{u"ab"_s, 1}}, false);
        row(u"%a%x"_s, none, {{u"ab"_s, 1}, {u"x"_s, u"b"_s}}, false);
        row(u"%1%12"_s, many, {}, false);
        // ... or only after the step that would look for it.
        row(u"%%1"_s, {u"1"_s}, {}, true);
        row(u"%1%2 %2%10 %%"_s, many, {}, true);
        row(u"%x%1%xy"_s, {u"y"_s}, x, true);
        // Values substituted again, keys that span placeholders, characters of two pieces, the end of a C string.
        row(u"%1"_s, {u"1%"_s}, {}, false);
        row(u"%x"_s, none, {{u"x"_s, u"%x"_s}}, false);
        row(u"%2"_s, {u"1%"_s}, {}, true);
        row(u"%a%1"_s, a, {{u"a%1"_s, 1}, {u"a"_s, 1}}, false);
        row(u"%"_s, none, {{QString(), 1}}, false);
        row(QChar(0xd83d) + u"%1"_s, {QString(QChar(0xde00))}, {}, false);
        const QChar pair[] = {QChar(0xd83d), QChar(0xde00)};
        row(u"%1"_s, {QString::fromRawData(pair, 1)}, {}, false); // whose other half is behind the text's end
        row(QString(QChar(0xd83d)) + u'\r' + QChar(0xde00), none, {}, false);
        row(QString(9, QChar(0)), none, {}, false);
    }

    // A text that grows without bound; one that ends too early, within a value or without its mark; a later step that
    // goes on; one pass that fills in more than the steps do, or less.
    void endsAtTheBound()
    {
        constexpr qsizetype bound = Zyr::maxGrowth;
        const QString mark = u" [placeholders left unfilled: the text would be too long]"_s;
        const auto x = [](qsizetype size) { return QString(size, u'x'); };
        const auto row = [&](const QString& text, const QVariantList& args, const QVariantMap& topics,
                             const QString& expected, bool once = false) {
            Zyr::LogMessage message(0, text);
            message.args = args.isEmpty() ? nullptr : new QVariantList(args);
            message.topics = topics.isEmpty() ? nullptr : new QVariantMap(topics);
            const QString found = message.getStr();
            const auto show = [](const QString& shown) {
                return QString::number(shown.size()) + u' ' + shown.right(70);
            };
            QVERIFY2(found == expected, qUtf8Printable(text.left(20) + u'\n' + show(found) + u'\n' + show(expected)));
            QVERIFY2(render(message) == std::pair(once, true), qUtf8Printable(text.left(40)));
        };

        // One value: just within the bound, and longer by one.
        row(u"%1%1"_s, {x(bound + 4)}, {}, x(2 * (bound + 4)));
        row(u"%1%1"_s, {x(bound + 5)}, {}, x(bound + 5) + u"%1"_s + mark);
        row(u"%a%a"_s, {}, {{u"a"_s, x(bound + 5)}}, x(bound + 5) + u"%a"_s + mark);
        row(x(3 * bound) + u"%1"_s, {x(bound)}, {}, x(4 * bound), true);
        row(x(3 * bound) + u"%1%1"_s, {x(bound / 2)}, {}, x(4 * bound), true);
        row(x(3 * bound) + u"%1%1"_s, {x(bound / 2 + 1)}, {}, x(4 * bound + 2));
        row(u"%1"_s.repeated(2000), {7}, {}, QString(2000, u'7'), true);
        row(u"%1"_s.repeated(20'000), {7}, {}, QString(20'000, u'7'));
        row(u"%1"_s.repeated(bound), {u"1"_s}, {}, QString(bound, u'1'), true);
        // A value that multiplies the next one, in either kind; what follows the end.
        row(u"%2%1"_s, {x(bound / 2 + 4), u"%1%1"_s}, {}, x(3 * (bound / 2 + 4)));
        row(u"%2%1"_s, {x(bound / 2 + 5), u"%1%1"_s}, {}, x(2 * (bound / 2 + 5)) + u"%1"_s + mark);
        row(u"%1 %b"_s, {u"%a%a%a"_s}, {{u"a"_s, x(bound)}, {u"b"_s, u"short"_s}}, x(2 * bound) + u"%a %b"_s + mark);
        // Keys that are empty, or hold what begins them; a value that is shorter than its name.
        row(u"%%"_s, {}, {{QString(), x(bound + 3)}}, x(bound + 3) + u'%' + mark);
        row(u"%a%a%a%"_s, {}, {{u"a%a"_s, x(bound)}}, x(bound) + u"%a%"_s);
        row(u"%a%"_s.repeated(3), {}, {{u"a%"_s, x(bound)}}, x(2 * bound) + u"%a%"_s + mark);
        row(u"%2%1"_s.repeated(bound), {QVariant(), QVariant()}, {}, {}, true);
        // Characters that escaping removes or doubles; halves of characters that meet.
        row(u"%1%1%1"_s, {QString(bound, u'\r')}, {}, u"%1"_s + mark);
        row(u"%1%1%1"_s, {QString(bound, u'"')}, {}, u"\\\""_s.repeated(2 * bound) + u"%1"_s + mark);
        const QString half = QChar(0xde00) + x(bound);
        row(QChar(0xd83d) + u"%1%1%1"_s, {half}, {}, QChar(0xd83d) + half + half + u"%1"_s + mark);
    }

    // Any text that comes out differently, whatever its pieces make of each other.
    void rendersTheSameAsTheSteps()
    {
        QRandomGenerator random(1);
        const QString alphabet = u"%%%%%001122xy\\\"\r\n\u00e9\u6f22\U0001f600"_s + QChar(0);
        const auto text = [&](int maxSize, qsizetype letters) {
            QString made(random.bounded(maxSize + 1), u'x');
            for (QChar& letter : made)
                letter = alphabet[random.bounded(letters)];
            return made;
        };
        int renderedOnce = 0;
        for (int round = 0; round < rounds; ++round) {
            // Half of them without the characters that rule out one pass, so that it happens often enough.
            const qsizetype letters = round % 2 ? alphabet.size() : alphabet.size() - 3;
            const auto value = [&]() -> QVariant {
                const QString made = text(3, letters);
                return random.bounded(4) ? QVariant(round % 4 ? QString(made).remove(u'%') : made) : random.bounded(13);
            };
            Zyr::LogMessage message(0, text(20, letters));
            for (int count = random.bounded(14) * random.bounded(2); count > 0; --count)
                static_cast<void>(message.arg(value()));
            for (int count = random.bounded(4); count > 0; --count)
                static_cast<void>(message.topic(
                    round % 4 ? text(3, 13).remove(u'%') + u"xy"[round / 4 % 2] : text(3, letters), value()));
            const auto [once, same] = render(message);
            QVERIFY2(same, qUtf8Printable(message.text));
            renderedOnce += once;
        }
        qInfo("%d of %d at once", renderedOnce, rounds);
        QVERIFY(renderedOnce > rounds / 4);
    }
};

QTEST_GUILESS_MAIN(tst_TextRenderer)
#include "tst_textrenderer.moc"
