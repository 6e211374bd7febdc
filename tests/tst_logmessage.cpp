// A message: how it is built, what becomes of its text, and how it ends.

#include <ZyrLogger/LogMessage.h>

#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

#include <climits>

using namespace Qt::StringLiterals;

/// The rules of rendering applied in the plainest way.
static QString byTheRules(const Zyr::LogMessage& message)
{
    using Type = QMetaType::Type;
    QString text = message.text;
    for (qsizetype n = message.args->size(); n > 0; --n) {
        const QVariant& v = message.args->at(n - 1);
        QString value = v.toString();
        if (const int type = v.typeId(); type == Type::Int || type == Type::LongLong)
            value = QLocale().toString(v.toLongLong());
        else if (type == Type::UInt || type == Type::ULongLong)
            value = QLocale().toString(v.toULongLong());
        else if (type == Type::Double)
            value = QLocale().toString(v.toDouble(), 'g', 6);
        text = text.split(u'%' + QString::number(n)).join(value);
    }
    for (const auto& [key, value] : message.topics->asKeyValueRange())
        text = text.split(u'%' + key).join(value.toString());
    return text.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s).remove(u'\r').replace(u'\n', u' ');
}

class tst_LogMessage : public QObject, public Zyr::LogMessage::Completer
{
    Q_OBJECT
    QStringList completed;
    void completeMessage(Zyr::LogMessage& message) override { throw completed += message.getStr(); }

private Q_SLOTS:
    // A leak; an exception that gets out, whatever its type; a completion of a dropped message.
    void endsOnceWhateverItsCompleterDoes()
    {
        const auto value = std::make_shared<int>();
        for (const QString& text : {u"ended"_s, u"without completer"_s, u"dropped"_s}) {
            Zyr::LogMessage& message = (new Zyr::LogMessage(0, text))->arg(QVariant::fromValue(value));
            message.setCompleter(text == u"without completer"_s ? nullptr : this);
            text == u"dropped"_s ? delete &message : message.endl();
        }
        QCOMPARE(value.use_count(), 1);
        QCOMPARE(completed, QStringList(u"ended"_s));
    }

    // One list more kept for later messages than there is room for, when a value that goes with a message ends another.
    void endsMessagesByValues()
    {
        for (int kept = 0; kept < 12; ++kept) {
            std::vector<Zyr::LogMessage*> messages;
            for (int i = 0; i < kept; ++i)
                messages.push_back(&(new Zyr::LogMessage(0, {}))->arg(i));
            auto inner = std::make_shared<std::unique_ptr<Zyr::LogMessage>>(new Zyr::LogMessage(0, {}));
            static_cast<void>((*inner)->arg(1));
            Zyr::LogMessage& outer = (new Zyr::LogMessage(0, {}))->arg(QVariant::fromValue(inner));
            inner.reset();
            for (Zyr::LogMessage* const message : messages)
                message->endl();
            outer.endl();
            for (int i = 0; i < 20; ++i)
                QCOMPARE(Zyr::LogMessage(0, u"%1"_s).arg(i).getStr(), QString::number(i));
        }
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

    void rendersKnownCases()
    {
        QLocale::setDefault(QLocale(u"de_DE"_s));
        const QString x = u"x"_s;
        const auto text = [](const char16_t* utf16) { return Zyr::LogMessage(0, QString::fromUtf16(utf16)); };
        // only the first one replaced; %12 kept from %1; what has no value removed; an invalid value's placeholder kept
        QCOMPARE(text(u"%1%1|%12|%3|%x|%|%2").arg(5).arg({}).getStr(), u"55|52|%3|%x|%|"_s);
        // values not substituted again; a lower number substituted before a higher one
        QCOMPARE(text(u"%2 %1").arg(u"%2%x"_s).arg(u"%1"_s).topic(x, 1).getStr(), u"%21 %21"_s);
        // the longer key first; keys that fold case; an empty key skipped
        QCOMPARE(text(u"%xy %X").topic(x, 1).topic(u"xy"_s, 2).getStr(), u"1y %X"_s);
        QCOMPARE(text(u"%x %").topic(x, 1).topic({}, u"-"_s).getStr(), u"-x -"_s);
        // escaped twice, too much, too early
        QCOMPARE(text(u"\"\\\t%1%x\r\n").arg(u"\"\n"_s).topic(x, u"\\"_s).getStr(), u"\\\"\\\\\t\\\" \\\\ "_s);
        // not by the locale, or too much by it
        QCOMPARE(text(u"%1 %2 %3").arg(3.14159265).arg(1234567).arg(true).getStr(), u"3,14159 1.234.567 true"_s);
        QCOMPARE(text(u"%1 %2 %x").arg(1234567L).arg(-2.5f).topic(x, -2.5).getStr(), u"1234567 -2.5 -2.5"_s);
    }

    // Any shortcut that leads elsewhere than the rules, in any of the locales that Qt knows.
    void rendersByTheRules()
    {
        QRandomGenerator random(1);
        const auto oneOf = [&](const auto& list) { return list[random.bounded(list.size())]; };
        const QStringList pieces =
            u"%|%|%1|%2|%10|%11|%x|%xy|x|y|1|0|\"|\\|\r\n|\n|\r|\0|\u00e4|\U0001f600|"_s.split(u'|');
        const QStringList keys = u"x|xy|X|1|12|%"_s.split(u'|');
        const auto text = [&] { return oneOf(pieces) + oneOf(pieces) + oneOf(pieces) + oneOf(pieces); };
        const auto value = [&] {
            const quint64 n = random.generate64() >> random.bounded(64);
            const QVariantList numbers = {int(n), uint(n), qlonglong(n), qulonglong(n), double(n), -double(n) / 1e9};
            const QVariantList others = {text(),   n % 2 == 0, QVariant::fromValue(long(n)),
                                         float(n), short(n),   QVariant()};
            return oneOf(random.bounded(2) == 0 ? numbers : others);
        };
        for (const QLocale& locale : QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, {})) {
            QLocale::setDefault(locale);
            for (int i = 0; i < 50; ++i) {
                Zyr::LogMessage message(0, text() + text());
                for (int n = random.bounded(1, 14); n > 0; --n)
                    static_cast<void>(message.arg(value()).topic(oneOf(keys), value()));
                QCOMPARE(message.getStr(), byTheRules(message));
            }
        }
    }
};

QTEST_GUILESS_MAIN(tst_LogMessage)
#include "tst_logmessage.moc"
