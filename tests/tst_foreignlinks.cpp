// Symbolic links that other users made, on the paths of the log and the settings: a user who may write a directory
// there must not make the process, perhaps root's, read or write other files. Only root can create such links for a
// test.

#include "SettingsProbe.h"

#include <ZyrLogger/Logger.h>

#include <QtTest/QtTest>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr uid_t other = 12345;

} // namespace

class tst_ForeignLinks : public QObject
{
    Q_OBJECT

    static void makeLink(const TestPlace& place, const QString& target, const QString& name, uid_t owner)
    {
        const QByteArray link = QFile::encodeName(place.path(name));
        QCOMPARE(::symlink(QFile::encodeName(target).constData(), link.constData()), 0);
        QCOMPARE(::lchown(link.constData(), owner, owner), 0);
    }

    /// At once, so that a logger finds one or the other.
    static void exchange(const TestPlace& place, const QString& one, const QString& two)
    {
        QCOMPARE(
            ::renameat2(AT_FDCWD, qPrintable(place.path(one)), AT_FDCWD, qPrintable(place.path(two)), RENAME_EXCHANGE),
            0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (::geteuid() != 0)
            SKIP_BUT_IN_CI("only root makes links for others");
    }

    void logIsNotLedAway_data()
    {
        QTest::addColumn<QString>("replaced"); // by a link of that name with "link" behind it
        QTest::addColumn<QString>("target");
        QTest::addColumn<uid_t>("owner");
        QTest::addColumn<QString>("log"); // where the entries go then
        QTest::newRow("log") << u"logs/app.log"_s << u"../foreign/app.log"_s << other << u"logs/app.loglink"_s;
        QTest::newRow("directory") << u"logs"_s << u"foreign"_s << other << u"logslink/app.log"_s;
        QTest::newRow("link to the directory") << u"way"_s << u"foreign"_s << other << u"logs/app.log"_s;
        QTest::newRow("own") << u"logs/app.log"_s << u"../foreign/app.log"_s << uid_t(0) << u"foreign/app.log"_s;
        QTest::newRow("own directory") << u"logs"_s << u"foreign"_s << uid_t(0) << u"foreign/app.log"_s;
    }

    // Another user's file appended to, rotated, packed or purged; a link of one's own that is not followed; entries
    // that are lost, or wait, because of a link; a log that does not rotate where it could, or grows without a word.
    void logIsNotLedAway()
    {
        QFETCH(const QString, replaced);
        QFETCH(const QString, target);
        QFETCH(const uid_t, owner);
        QFETCH(const QString, log);
        const TestPlace place;
        QDir(place.path({})).mkdir(u"logs"_s);
        QDir(place.path({})).mkdir(u"foreign"_s);
        const QByteArray secret = QByteArray(10'000, 's') + '\n';
        place.write(u"foreign/app.log"_s, secret);
        makeLink(place, u"logs"_s, u"way"_s, 0);
        makeLink(place, target, replaced + u"link"_s, owner);
        const QString path = place.path(replaced == u"way"_s ? u"way/app.log"_s : u"logs/app.log"_s);
        const bool isForeign = owner == other;
        place.write(u"app_Log.ini"_s, settingsFile({}, "compress=true\npurgeCount=1\npath=" + QFile::encodeName(path) +
                                                           (isForeign ? "\nrotation=1 K" : "")));

        const QByteArray errors = errorsOf([&] {
            Zyr::Logger logger(u"Links"_s, u"unused.log"_s, u"app_Log.ini"_s);
            const auto say = [&](int number) { logger.out(Zyr::Info, u"entry %1"_s).arg(number).endl(); };
            say(0);
            QTRY_COMPARE(place.lines(u"logs/app.log"_s), QStringList(u"info entry 0"_s));
            exchange(place, replaced, replaced + u"link"_s);
            QElapsedTimer time;
            time.start();
            int number = 0;
            for (; time.elapsed() < 1'500 || number < 200;
                 QTest::qSleep(10)) // until it has looked where its path leads
                say(++number);
            QTRY_VERIFY(place.read(log).endsWith("entry " + QByteArray::number(number) + '\n'));
        });
        QCOMPARE(errors.count("symbolic link of another user"), isForeign ? 1 : 0);
        QCOMPARE(errors.count("grows, since"), isForeign && target.startsWith(u".."_s) ? 1 : 0);
        if (isForeign) {
            QCOMPARE(place.read(u"foreign/app.log"_s), secret);
            QCOMPARE(QDir(place.path(u"foreign"_s)).entryList(QDir::Files | QDir::Hidden), QStringList(u"app.log"_s));
        } else {
            QVERIFY(place.read(u"foreign/app.log"_s).startsWith(secret));
        }
    }

    // A first file, or its missing directory, created where another user's link leads; a logger that does not notice
    // that the link is gone.
    void logDoesNotBeginElsewhere()
    {
        const TestPlace place;
        QDir(place.path({})).mkdir(u"foreign"_s);
        makeLink(place, u"foreign"_s, u"logs"_s, other);
        const QByteArray path = QFile::encodeName(place.path(u"logs/deep/app.log"_s));
        place.write(u"app_Log.ini"_s, settingsFile({}, "path=" + path));
        const QByteArray errors = errorsOf([&] {
            Zyr::Logger logger(u"Links"_s, u"unused.log"_s, u"app_Log.ini"_s);
            logger.out(Zyr::Info, u"nowhere"_s).endl();
            QVERIFY(QDir(place.path(u"foreign"_s)).isEmpty());
            QVERIFY(QFile::remove(place.path(u"logs"_s)));
            QTRY_VERIFY((logger.out(Zyr::Info, u"there"_s).endl(), !place.read(u"logs/deep/app.log"_s).isEmpty()));
        });
        QVERIFY2(errors.contains("symbolic link of another user"), errors.constData());
    }

    // Settings of another user's choice, and missing keys written into a file that is none of them.
    void settingsAreNotLedAway()
    {
        const TestPlace place;
        place.write(u"secret.ini"_s, "[S]\nv=secret\n");
        makeLink(place, u"secret.ini"_s, probeFile, other);
        const QByteArray errors = errorsOf([&] {
            SettingsProbe probe(addKey);
            QVERIFY(probe.startConfigFileWatcher());
            QCOMPARE(probe.loads(), "first ");
            QCOMPARE(place.read(u"secret.ini"_s), "[S]\nv=secret\n");
            QVERIFY(QFile::remove(place.path(probeFile)));
            makeLink(place, u"secret.ini"_s, probeFile, 0);
            QTRY_COMPARE(probe.loads(), "first |secret");
            QTRY_COMPARE(place.read(u"secret.ini"_s), "[S]\nv=secret\nadded=1\n");
            QVERIFY(QFileInfo(place.path(probeFile)).isSymLink());
        });
        QVERIFY2(errors.contains("symbolic link of another user"), errors.constData());
    }
};

QTEST_GUILESS_MAIN(tst_ForeignLinks)
#include "tst_foreignlinks.moc"
