// The helpers of the tools library.
#include "SettingsProbe.h"

#include <ZyrTools/Misc.h>

#include <QtTest/QTest>

#include <csignal>

using namespace Qt::StringLiterals;

class TestMisc : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsSetting_data();
    void readsSetting();
    void missingSettingIsSet();
    void createsDirectory();
    void reportsOneLine();
    void closedStandardErrorIsSurvived();
};

void TestMisc::readsSetting_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QVariant>("expected");
    QTest::newRow("text") << QByteArray("a b") << QVariant(u"a b"_s);
    QTest::newRow("unquoted comma") << QByteArray("fatal,panic,,x") << QVariant(u"fatal,panic,,x"_s);
    QTest::newRow("quoted comma") << QByteArray("\"a, b\"") << QVariant(u"a, b"_s);
    QTest::newRow("empty is not missing") << QByteArray() << QVariant(QString());
    QTest::newRow("other type than the default") << QByteArray("@ByteArray(x)") << QVariant(QByteArray("x"));
}

void TestMisc::readsSetting()
{
    QFETCH(QByteArray, text);
    const TestPlace place;
    place.write(u"s.ini"_s, "[G]\nk=" + text + '\n');
    QSettings settings(place.path(u"s.ini"_s), QSettings::IniFormat);
    settings.beginGroup(u"G"_s);
    bool changed = false;
    QTEST(Zyr::Misc::checkSettingsValue(settings, u"k"_s, changed, 5), "expected");
    QVERIFY(!changed);
    changed = true;
    Zyr::Misc::checkSettingsValue(settings, u"k"_s, changed, 5);
    QVERIFY2(changed, "it never becomes false");
}

void TestMisc::missingSettingIsSet()
{
    const TestPlace place;
    QSettings settings(place.path(u"s.ini"_s), QSettings::IniFormat);
    settings.beginGroup(u"G"_s);
    bool changed = false;
    QCOMPARE(Zyr::Misc::checkSettingsValue(settings, u"k"_s, changed, true), QVariant(true));
    QVERIFY(changed);
    settings.endGroup();
    QCOMPARE(settings.value(u"G/k"_s), QVariant(true));
}

void TestMisc::createsDirectory()
{
    const TestPlace place;
    QVERIFY(Zyr::Misc::checkDirectory(place.path(u"a/b"_s)));
    QVERIFY(Zyr::Misc::checkDirectory(place.path(u"a/b"_s)));
    QVERIFY(QDir(place.path(u"a/b"_s)).exists());
    place.write(u"file"_s, "");
    QVERIFY(!Zyr::Misc::checkDirectory(place.path(u"file"_s)));
    QVERIFY(!Zyr::Misc::checkDirectory(place.path(u"file/below"_s)));
}

void TestMisc::reportsOneLine()
{
    const TestPlace place;
    const ErrorText errors(place);
    Zyr::Misc::reportProblem(u"a\nb"_s, u"c\r\nd"_s);
    QCOMPARE(errors.read(), QByteArray("a b: c  d\n"));
}

void TestMisc::closedStandardErrorIsSurvived()
{
    sigset_t pipeSignal;
    ::sigemptyset(&pipeSignal);
    ::sigaddset(&pipeSignal, SIGPIPE);
    ::pthread_sigmask(SIG_UNBLOCK, &pipeSignal, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    int ends[2];
    QVERIFY(::pipe(ends) == 0);
    ::close(ends[0]);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    Zyr::Misc::reportProblem(u"a"_s, u"b"_s); // SIGPIPE would end the test program
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    ::close(ends[1]);
    sigset_t after;
    ::pthread_sigmask(SIG_UNBLOCK, &pipeSignal, &after); // a signal still pending comes now
    QVERIFY(!::sigismember(&after, SIGPIPE));
}

QTEST_APPLESS_MAIN(TestMisc)
#include "tst_misc.moc"
