// How a process with loggers begins and ends: its output, its log files, its exit code. Each scenario is in helper.cpp,
// with the bug that it is for.

#include "HelperProgram.h"
#include "TestPlace.h"

#include <QtCore/QElapsedTimer>
#include <QtTest/QTest>

using namespace Qt::StringLiterals;

class TestProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void scenario_data()
    {
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<QByteArray>("channelKeys");
        const auto row = [](const char* name, const QStringList& log, const char* output = "", const char* keys = "") {
            QTest::newRow(name) << log << QByteArray(output) << QByteArray(keys);
        };
        const QString shutdown = u"notice <SYS> Logger shutdown"_s;
        QStringList numbers;
        for (int i = 0; i < 200'000; ++i)
            numbers.append(u"info %1"_s.arg(i));
        row("becomesUsable", {u"info usable"_s}, "Invalid logger - early %1\nInvalid logger - <>\n");
        row("refusesRotation", {u"mended"_s}, "\nException on creating logger\n\nException on creating logger\n",
            "rotation=sometimes");
        row("beginsOnTwoThreads", {u"info x"_s, u"info x"_s});
        row("logsInDestructors", {u"info first"_s, u"info before"_s}, "Invalid logger - after\n");
        row("beginsAtExit", {u"info late"_s});
        row("flushesMainLogger", {shutdown, u"info opened again"_s, u"info goes on"_s});
        row("shutsDown", {shutdown},
            "Invalid logger - a\nInvalid logger - b\nInvalid logger - Logger shutdown\nInvalid logger - c\n");
        row("endsWithBacklog", numbers, "", "flush=true");
        row("forks", numbers);
    }

    void scenario()
    {
        QFETCH(const QByteArray, channelKeys);
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile({}, channelKeys));
        // A value of a type that Qt does not know, which it warns of.
        place.write(u"_Valve_Log.ini"_s, settingsFile("textFilters=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x2x\\0)"));
        QElapsedTimer time;
        time.start();
        const QString name = QString::fromUtf8(QTest::currentDataTag());
        const HelperResult result = runHelper(u"helper"_s, {name});
        QVERIFY2(name != "shutsDown"_L1 || time.elapsed() < 1000, "waits for a chain that is gone");
        QVERIFY2(result.exited && result.code == 0, result.standardError.constData());
        QTEST(result.standardOutput, "output");
        const QStringList log = place.lines(u"Quadel.log"_s) + place.lines(u"_Valve.log"_s);
        QTEST(log, "log");
    }
};

QTEST_GUILESS_MAIN(TestProcess)
#include "tst_process.moc"
