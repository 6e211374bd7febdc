// From an ended message to its record: what reaches the file and the listeners.

#include "RecordingListener.h"
#include "TestPlace.h"

#include <QtTest/QtTest>

#include <thread>

using namespace Qt::StringLiterals;

class tst_Completion : public QObject
{
    Q_OBJECT
    const TestPlace place;
    std::unique_ptr<Zyr::Logger> logger;

    static QString threadId() { return QString::number(reinterpret_cast<quintptr>(QThread::currentThreadId())); }

private Q_SLOTS:
    void initTestCase()
    {
        const QByteArray filters = "textFilters=net|<SYS>|Line 7|%1";
        place.write(u"tst.ini"_s, settingsFile(filters, "flush=true\npattern=%I %s %U:%u %l %t"));
        logger = std::make_unique<Zyr::Logger>(u"tst"_s, u"tst.log"_s, u"tst.ini"_s);
        logger->addExcludeFilter(u"noise"_s);
    }

    // A level with another's priority or mark; a record without its source; a file that gets another line.
    void mapsEveryLevel()
    {
        QStringList lines = QString(u"1 net [a.cpp, Line 42]|1 net|2 net|3 net|4 net|5 net|6 net|7 net|8 net|"
                                    "1 Unknown log level 9 :net|1 Unknown log level 10 :net|5 <SYS> net|7 <TODO> net|"
                                    "1 Unknown log level 13 :net|1 Unknown log level 255 :net"_s)
                                .split(u'|');
        lines.replaceInStrings(QRegularExpression(u"^"_s), threadId() + u" tst /src/a.cpp:42 "_s);
        for (const int level : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 255})
            logger->out(static_cast<uchar>(level), u"net"_s, "/src/a.cpp", 42).endl();
        QTRY_COMPARE(place.lines(u"tst.log"_s), lines);
    }

    // Filters that fold case, see placeholders or marks, need every entry to match, or let the including ones win.
    void filtersTheRenderedText()
    {
        const RecordingListener listener(*logger);
        for (const QString& text : {u"Network up"_s, u"subnet up"_s, u"net noise"_s, u"up"_s, u"Noise net"_s})
            logger->out(Zyr::System, u"%1"_s).arg(text).endl();
        logger->out(Zyr::Emerg, u"boom"_s, "a.cpp", 7).endl();
        QCOMPARE(listener.texts(), QStringList({u"<SYS> subnet up"_s, u"<SYS> Noise net"_s}));
    }

    // The time or the thread of another moment than creation and end; a NUL in the record; an empty filter not found.
    void keepsCreationTimeAndEndingThread()
    {
        const RecordingListener listener(*logger);
        Zyr::LogMessage& message = logger->out(Zyr::Emerg, u"net\0b"_s);
        message.timestamp = 1'715'933'730'123'999;
        QString line = u" tst :0 1 net"_s;
        std::thread([&] { line.prepend(threadId()), message.endl(); }).join();
        logger->addExcludeFilter({}); // for good
        logger->out(Zyr::Error, u"net"_s).endl();
        QCOMPARE(listener.texts(), QStringList(u"net"_s));
        const RecordingListener::Record record = listener.records().constFirst();
        QCOMPARE(record.time, QDateTime::fromMSecsSinceEpoch(1'715'933'730'123).toString(Qt::ISODateWithMs));
        QCOMPARE(record.line, line);
    }
};

QTEST_GUILESS_MAIN(tst_Completion)
#include "tst_completion.moc"
