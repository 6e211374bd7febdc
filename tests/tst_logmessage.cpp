// A message while it is being built, and how it ends.

#include <ZyrLogger/LogMessage.h>

#include <QtTest/QtTest>

#include <climits>

using namespace Qt::StringLiterals;

static int destructions = 0;

struct CountedMessage : Zyr::LogMessage
{
    using LogMessage::LogMessage;
    ~CountedMessage() override { ++destructions; }
};

class tst_LogMessage : public QObject, public Zyr::LogMessage::Completer
{
    Q_OBJECT
    QStringList completed;
    void completeMessage(Zyr::LogMessage& message) override { throw completed += message.getStr(); }

private Q_SLOTS:
    // A leak; an exception that gets out, whatever its type; a completion of a dropped message.
    void endsOnceWhateverItsCompleterDoes()
    {
        for (const QString& text : {u"ended"_s, u"without completer"_s, u"dropped"_s}) {
            Zyr::LogMessage* const message = new CountedMessage(0, text);
            message->setCompleter(text == u"without completer"_s ? nullptr : this);
            text == u"dropped"_s ? delete message : message->endl();
        }
        QCOMPARE(destructions, 3);
        QCOMPARE(completed, QStringList(u"ended"_s));
    }

    // A type that does not compile, here or on 32 bits; one that loses its sign, its range, its length or its encoding.
    void takesEveryTypeOfValue()
    {
        const auto renders = [](const auto& value, const std::string& expected) {
            const QString text = Zyr::LogMessage(0, u"%1%x"_s).arg(value).topic(u"x"_s, value).getStr();
            return text == QString::fromStdString(expected + expected);
        };
        const auto render = [&](auto... values) { return (renders(values, std::to_string(values)) && ...); };
        QLocale::setDefault(QLocale::c());
        QVERIFY(render(std::int8_t(-128), std::int16_t(-32768), INT32_MIN, INT64_MIN, LONG_MIN, LLONG_MIN));
        QVERIFY(render(std::uint8_t(255), std::uint16_t(65535), UINT32_MAX, UINT64_MAX, ULONG_MAX, ULLONG_MAX));
        char text[] = "\u00b5m";
        QVERIFY(renders(text, text) && renders("\u00b5m", text) && renders(std::string(text), text));
        QVERIFY(renders(std::string_view("\u00b5m and more", 3), text) && renders(true, "true"));
    }

    // A first value that stays; a key that folds case; a clear() that takes too much or too little.
    void clearsItsParts()
    {
        Zyr::LogMessage message(9, u"%1 %Key"_s, nullptr, 7);
        QVERIFY(message.level == 9 && message.file.isEmpty() && message.timestamp.elapsed() < 10'000'000);
        QCOMPARE(message.topic(u"Key"_s, 1).arg(1).topic(u"Key"_s, 2).topic(u"key"_s, 3).getStr(), u"1 2"_s);
        message.setCompleter(this);
        message.timestamp = 1;
        message.clear();
        QVERIFY(message.level == 0 && message.text.isEmpty() && message.line == 0 && !message.args && !message.topics);
        QVERIFY(message.completer == this && message.timestamp == 1);
    }
};

QTEST_GUILESS_MAIN(tst_LogMessage)
#include "tst_logmessage.moc"
