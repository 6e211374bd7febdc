// The archives of a rotating log file, which is named "l". A folder is shown as its sorted names, with "/" behind a
// directory and "=" and the content behind a short file.

#include "settings/FileProperties.h"
#include "store/archive/Archives.h"
#include "system/TrustedPath.h"

#include <QtCore/QTemporaryDir>
#include <QtCore/QUrlQuery>
#include <QtTest/QtTest>

#include <csignal>
#include <fstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace Zyr;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::seconds year = 365 * 24h;
const Archives::Time noon{std::chrono::sys_days(std::chrono::year(2026) / 2 / 28) + 12h}; // 20260228120000000

struct Folder
{
    const QTemporaryDir place;
    const std::string directory = place.path().toStdString() + '/';
    CallWatch watch;
    Archives archives{watch};

    Folder(const char* content, const char* settings)
    {
        run("for word in " + std::string(content) +
            "; do case $word in */) mkdir $word ;; *=*) printf ${word#*=} > "
            "${word%=*} ;; *) : > $word ;; esac; done");
        FileProperties properties;
        for (const auto& [name, value] : QUrlQuery(QString::fromLatin1(settings)).queryItems())
            properties.set(name.toStdString(), value.toStdString());
        TrustedPath log;
        QVERIFY(!log.find((directory + 'l').c_str()));
        archives.configure(LogPlace::of(log, watch), properties.settings());
    }
    QByteArray content() const
    {
        const QDir::Filters all = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
        QByteArrayList words;
        for (const QFileInfo& entry : QDir(place.path(), {}, {}, all).entryInfoList()) {
            QFile file(entry.filePath());
            const bool isShort =
                entry.isFile() && entry.size() > 0 && entry.size() < 9 && file.open(QIODevice::ReadOnly);
            words += entry.fileName().toUtf8() + (entry.isDir() ? "/" : isShort ? '=' + file.readAll() : "");
        }
        return words.join(' ');
    }
    /// Returns the archive's name.
    std::string rotate(Archives::Time now = noon, const std::string& text = "new")
    {
        std::ofstream(directory + 'l') << text;
        std::string name;
        // Room that was made is still there when it is made again.
        if (archives.makeRoom(now, name) || archives.makeRoom(now, name) ||
            ::access((directory + name).c_str(), F_OK) == 0)
            return "no room";
        std::rename((directory + 'l').c_str(), (directory + name).c_str());
        archives.added(name, now);
        archives.purge(now);
        return name;
    }
    void compress(Archives::Time now = noon, int slices = 1000)
    {
        while (slices-- > 0 && archives.canCompress(now))
            archives.compressSlice(now);
    }
    void run(const std::string& script) const
    {
        QCOMPARE(std::system(("cd " + directory + " && " + script).c_str()), 0);
    }
};

/// About a megabyte; even compressed, more than one write.
std::string longText()
{
    std::string text;
    for (unsigned line = 0; line < 100'000; ++line)
        text += std::to_string(line * 2654435761u) + '\n';
    return text;
}

} // namespace

class tst_Archives : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A shift over a hole or onto a file, or one that loses ".gz" or stumbles over a directory; an archive that goes or
    // stays by another rule than the settings', or a file that is none; the wrong order; an overflow.
    void makesRoomAndPurges()
    {
        const auto numbers = "l.0/ l.1=a l.2.gz=b l.9=c l.10=d l.1x l.01 l.20260101000000 l.20230229000000000 l2.0";
        const auto stamps = "l.20260228110000000=a l.20260228110000000.0.gz=b l.20260228100000=c "
                            "l.20260228100000000.gz=d l.3=e";
        const std::array<const char*, 3> rows[] = {
            {"l.1=a l.10=b", "", "l.0=new l.1=a l.10=b l.11/"},
            {numbers, "purgeAge=9999months",
             "l.0=new l.01 l.1/ l.10=d l.11/ l.1x l.2=a l.20230229000000000 l.20260101000000 l.3.gz=b l.9=c l2.0"},
            {numbers, "purgeCount=3", "l.0=new l.01 l.1/ l.11/ l.1x l.2=a l.20230229000000000 l.3.gz=b l2.0"},
            {"l.0=a l.0.gz=b l.1=c", "purgeCount=2", "l.0=new l.1=a l.1.gz=b l.11/"},
            {stamps, "archive=timestamp&purgeCount=3",
             "l.11/ l.20260228110000000=a l.20260228110000000.0.gz=b l.20260228120000000=new"},
            {stamps, "purgeCount=3", "l.0=new l.11/ l.20260228110000000=a l.3=e"},
            {stamps, "archive=timestamp&purgeAge=1hours", "l.11/ l.20260228120000000=new l.3=e"}};
        for (const auto& [before, settings, after] : rows) {
            Folder folder(before, settings);
            folder.run("ln -s . l.11");
            folder.rotate();
            QCOMPARE(folder.content(), after);
        }
    }

    // A stamp that is not later than all existing ones, or is no date, when the clock was set or two logs end at once.
    void stampsGoOn()
    {
        for (const auto& [before, stamp] : {std::pair("l.20260228115959999.gz", "l.20260228120000000"),
                                            {"l.20260228120000000.gz", "l.20260228120000001"},
                                            {"l.20280228235959999.7.gz", "l.20280229000000000"}}) {
            Folder folder(before, "archive=timestamp");
            QCOMPARE(folder.rotate(), stamp);
            QVERIFY(folder.rotate(noon - year) > stamp);
        }
        ::setenv("TZ", "XST-5:30", 1);
        ::tzset();
        QCOMPARE(ArchiveStamp::of(noon + 999ms, true), 20260228173000999u);
    }

    // Times of files that are looked up too late, or not under their present names; the archive just made removed.
    void purgesByTime()
    {
        Folder folder("l.0=a l.1=b l.2.gz=c", "purgeAge=30");
        folder.run("touch -d @1772279990 l.0; touch -d @1772279980 l.1; touch -d @1772280000 l.2.gz"); // noon
        folder.archives.cleanUp(noon);
        folder.rotate();
        for (const auto& [time, after] : {std::pair(noon + 9s, "l.0=new l.1=a l.2=b l.3.gz=c"),
                                          {noon + 10s, "l.0=new l.1=a l.3.gz=c"},
                                          {noon + 5 * year, "l.0=new"}}) {
            folder.archives.purge(time);
            QCOMPARE(folder.content(), after);
        }
    }

    // Content under an old name after a shift, lost attributes, new archives that wait for old ones.
    void compresses()
    {
        Folder folder("l.0=old l.1/", "compress=true");
        folder.archives.cleanUp(noon);
        folder.rotate(noon, longText());
        folder.run("chmod 640 l.0; touch -d @1234567890 l.0");
        folder.compress(noon, 3);
        folder.rotate(noon, {});
        QCOMPARE(folder.content(), ".l.gz-part l.0 l.1 l.2=old l.3/");
        folder.rotate();
        QVERIFY(folder.archives.mustCompressFirst());
        for (const auto& [slices, after] : {std::pair(14, "l.0=new l.1 l.2.gz l.3=old l.4/"),
                                            {1, "l.0=new l.1.gz l.2.gz l.3=old l.4/"},
                                            {10, "l.0.gz l.1.gz l.2.gz l.3.gz l.4/"}}) {
            folder.compress(noon, slices);
            QCOMPARE(folder.content(), after);
            QVERIFY(!folder.archives.mustCompressFirst());
        }

        std::ofstream(folder.directory + "text") << longText();
        folder.run("stat -c '%a %Y' l.2.gz | grep -x '640 1234567890' && gzip -d *.gz && cmp l.2 text && rm text");
        QCOMPARE(folder.content(), "l.0=new l.1 l.2 l.3=old l.4/");
    }

    // History lost to a full disk; a log that waits for what cannot be; attempts without a pause, or none any more.
    void survivesFullDisk()
    {
        Folder folder("", "compress=true");
        for (int count = 0; count < 3; ++count)
            folder.rotate(noon, longText());
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        ::getrlimit(RLIMIT_FSIZE, &before);
        const rlimit full{40'000, before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &full);
        folder.compress();
        ::setrlimit(RLIMIT_FSIZE, &before);
        QCOMPARE(folder.content(), "l.0 l.1 l.2");
        QVERIFY(!folder.archives.mustCompressFirst() && !folder.archives.canCompress(noon));
        folder.compress(noon + 10s);
        QCOMPARE(folder.content(), "l.0.gz l.1.gz l.2.gz");
    }

    // Lines lost that are just being written, or an archive's compressed remains under a name that is not its own.
    void compressesWhatIsThere()
    {
        const std::tuple<const char*, bool, const char*> rows[] = {
            {"mv l.0 kept; cp kept l.0", false, "kept l.0"},
            {"true", true, "l.0"}, // where the new archive has the other one purged
            {"rm l.0", true, "l.0"},
            {"echo foreign > l.0.gz", false, "l.0 l.0.gz=foreign\n"}};
        for (const auto& [meanwhile, rotates, after] : rows) {
            Folder folder("", "compress=true&purgeCount=1");
            folder.rotate(noon, longText());
            const int writer = ::open((folder.directory + "l.0").c_str(), O_RDWR | O_CLOEXEC);
            const struct flock range = {F_RDLCK, SEEK_SET, 0, 0, 0};
            QCOMPARE(::fcntl(writer, F_OFD_SETLK, &range), 0);
            folder.compress();
            QCOMPARE(folder.content(), "l.0");
            ::close(writer);
            folder.compress(noon + 2s, 3);
            QCOMPARE(folder.content(), ".l.gz-part l.0");
            folder.run(meanwhile);
            if (rotates)
                folder.rotate(noon, longText());
            else
                folder.compress();
            QCOMPARE(folder.content(), after);
        }
    }

    // What a killed process leaves behind that stays, or history that is removed with it.
    void cleansUp()
    {
        for (const auto& [before, after] : {std::pair("l .l.gz-part=x .l.next .l2.next", ".l2.next l"),
                                            {"l .l.next=old l.0=older l.2=oldest", "l l.0=old l.1=older"},
                                            {"l pair=whole", "l l.0.gz"},
                                            {"l l.0=whole l.0.gz=cut", "l l.0=whole l.0.gz=cut"}}) {
            Folder folder(before, "purgeCount=2");
            folder.run("[ ! -e pair ] || { mv pair l.0; gzip -k l.0; }");
            QVERIFY(!folder.archives.cleanUp(noon));
            QCOMPARE(folder.content(), after);
        }
    }
};

QTEST_GUILESS_MAIN(tst_Archives)
#include "tst_archives.moc"
