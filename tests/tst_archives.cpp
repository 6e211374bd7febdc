// The archives of a rotating log file, which is named "l". A folder is told as its names in order, with "/" behind a
// directory and "=" and the content behind a short file.

#include "chain/archive/Archives.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace Zyr;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::seconds year = 365 * 24h;
const Archives::Time noon{std::chrono::sys_days(std::chrono::year(2026) / 2 / 28) + 12h}; // 20260228120000000

struct Folder
{
    const QTemporaryDir place;
    FileSettings settings;
    CallWatch watch;
    Archives archives{watch};

    explicit Folder(const std::string& content = {}) { put(content); }
    std::string path(const std::string& name) const { return place.path().toStdString() + '/' + name; }
    void configure() { archives.configure(path("l"), settings); }
    void put(const std::string& content) const
    {
        std::istringstream words(content);
        for (std::string word; words >> word;) {
            if (word.ends_with('/'))
                fs::create_directory(path(word));
            else
                std::ofstream(path(word.substr(0, word.find('='))))
                    << (word.find('=') < word.size() ? word.substr(word.find('=') + 1) : "");
        }
    }
    std::string read(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }
    QByteArray content() const
    {
        std::set<std::string> words;
        for (const auto& entry : fs::directory_iterator(place.path().toStdString())) {
            const std::string name = entry.path().filename();
            const bool shown = !entry.is_directory() && entry.file_size() > 0 && entry.file_size() < 9;
            words.insert(name + (entry.is_directory() ? "/" : shown ? '=' + read(name) : ""));
        }
        QByteArray text;
        for (const std::string& word : words)
            text += (text.isEmpty() ? "" : " ") + QByteArray::fromStdString(word);
        return text;
    }
    QByteArray rotate(Archives::Time now = noon, const std::string& text = "new")
    {
        std::ofstream(path("l")) << text;
        std::string name;
        if (archives.makeRoom(now, name) || fs::exists(name))
            return "no room";
        fs::rename(path("l"), name);
        archives.added(name, now);
        archives.purge(now);
        return QByteArray::fromStdString(fs::path(name).filename());
    }
    void setAge(const std::string& name, std::chrono::seconds age) const
    {
        const auto second = std::chrono::system_clock::to_time_t(noon - age);
        const timespec times[] = {{second, 0}, {second, 0}};
        QCOMPARE(::utimensat(AT_FDCWD, path(name).c_str(), times, 0), 0);
    }
    void compress(Archives::Time now = noon, int slices = 1000)
    {
        while (slices-- > 0 && archives.canCompress(now))
            archives.compressSlice(now);
    }
    int run(const std::string& script) const
    {
        return std::system(("cd " + place.path().toStdString() + " && " + script).c_str());
    }
};

/// Of about a megabyte, and compressed more than is written at once.
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
    // A file taken for an archive, which is purged some day, or an archive that is not known, which stays for ever.
    void knowsItsOwn()
    {
        std::istringstream own("l.0 l.999999999 l.10.gz l.20240229235959999 l.20240229235959 l.20240229235959.gz "
                               "l.20240229235959999.3.gz");
        for (std::string name; own >> name;) {
            const auto archive = ArchiveName::parse("l", name);
            QCOMPARE(archive ? "l" + archive->suffix() : "foreign", name);
        }
        std::istringstream foreign(
            "l l.gz l. l.01 l.1234567890 l.1x l.-1 l.3.bak l.conf l2.0 l.3.4 xl.1 l..1 l.1.gz.gz "
            "l.20230229000000000 l.20241301000000000 l.20240101240000000 l.2024010100000000 "
            "l.20240229235959999.03 l.20240229235959999.3.4 l.00000000000000");
        for (std::string name; foreign >> name;)
            QVERIFY2(!ArchiveName::parse("l", name), name.c_str());
    }

    // A shift over a hole or onto a file, one that loses ".gz" or stumbles over a directory; one more when repeated.
    void makesRoom()
    {
        for (const auto& [before, after] : {std::pair("l.0=a l.1.gz=b l.2=c", "l.1=a l.2.gz=b l.3=c"),
                                            {"l.0=a l.2=b l.3=c", "l.1=a l.2=b l.3=c"},
                                            {"l.1=a l.10=b", "l.10=b l.1=a"},
                                            {"l.0=a l.1/ l.1x=x l.3.bak=y", "l.1=a l.1x=x l.2/ l.3.bak=y"},
                                            {"l.0=a l.0.gz=b l.1=c", "l.1.gz=b l.1=a l.2=c"},
                                            {"l.0=a l.20260101000000000=b", "l.1=a l.20260101000000000=b"}}) {
            Folder folder(before);
            folder.configure();
            for (int times = 0; times < 2; ++times) {
                std::string name;
                QVERIFY(!folder.archives.makeRoom(noon, name));
                QCOMPARE(name, folder.path("l.0"));
                QCOMPARE(folder.content(), after);
            }
        }
    }

    // A stamp before or like one there, or one that is no date, when the clock was set or two logs end at a time.
    void stampsGoOn()
    {
        for (const auto& [before, stamp] : {std::pair("", "l.20260228120000000"),
                                            {"l.20260228115959999.gz", "l.20260228120000000"},
                                            {"l.20260228120000000.gz", "l.20260228120000001"},
                                            {"l.20260228120000", "l.20260228120000001"},
                                            {"l.20270228235959999.7 l.20270228235959999.gz", "l.20270301000000000"},
                                            {"l.20280228235959999/", "l.20280229000000000"},
                                            {"l.20261231235959999 l.99999999999999999", "l.20270101000000000"}}) {
            Folder folder(before);
            folder.settings.timestampedArchives = true;
            folder.configure();
            QCOMPARE(folder.rotate(), stamp);
            QVERIFY(folder.rotate(noon - year) > stamp);
            QCOMPARE(folder.rotate(noon + 5 * year), "l.20310227120000000");
        }
        ::setenv("TZ", "XST-5:30", 1);
        ::tzset();
        QCOMPARE(ArchiveStamp::of(noon + 999ms, true), 20260228173000999u);
    }

    // An archive that goes or stays by another rule than the settings', or a file that is none; the wrong order.
    void purges()
    {
        const auto numbers = "l.0/ l.1=a l.2.gz=b l.9=c l.10=d l.1x l2.5";
        const auto stamps = "l.20260228110000000=a l.20260228110000000.0.gz=b l.20260228100000=c "
                            "l.20260228100000000.gz=d l.3=e";
        const struct
        {
            const char* before;
            bool timestamped;
            unsigned count;
            long long age;
            const char* after;
        } rows[] = {
            {numbers, false, 0, 0, "l.0=new l.1/ l.10=d l.11/ l.1x l.2=a l.3.gz=b l.9=c l2.5"},
            {numbers, false, 3, 0, "l.0=new l.1/ l.11/ l.1x l.2=a l.3.gz=b l2.5"},
            {numbers, false, 1, 0, "l.0=new l.1/ l.11/ l.1x l2.5"},
            {"l.0=a l.0.gz=b l.1=c", false, 2, 0, "l.0=new l.1.gz=b l.11/ l.1=a"},
            {stamps, true, 3, 0, "l.11/ l.20260228110000000.0.gz=b l.20260228110000000=a l.20260228120000000=new"},
            {stamps, false, 3, 0, "l.0=new l.11/ l.20260228110000000=a l.3=e"},
            {stamps, true, 0, 3600, "l.11/ l.20260228120000000=new l.3=e"},
            {stamps, true, 2, 7000, "l.11/ l.20260228110000000=a l.20260228120000000=new"},
            {stamps, true, 2, 3600, "l.11/ l.20260228120000000=new"},
            {"l.20260101000000", true, 0, 15'000'000'000, "l.11/ l.20260101000000 l.20260228120000000=new"},
        };
        for (const auto& [before, timestamped, count, age, after] : rows) {
            Folder folder(before);
            fs::create_symlink(".", folder.path("l.11"));
            folder.settings.timestampedArchives = timestamped;
            folder.settings.purgeCount = count > 0 ? std::optional(count) : std::nullopt;
            folder.settings.purgeAge = age > 0 ? std::optional(std::chrono::seconds(age)) : std::nullopt;
            folder.configure();
            folder.rotate();
            QCOMPARE(folder.content(), after);
        }
    }

    // Times of files that are looked up too late, or not under their present names; the archive just made removed.
    void purgesByTime()
    {
        Folder folder("l.0=a l.1=b l.2.gz=c");
        folder.setAge("l.0", 10s);
        folder.setAge("l.1", 20s);
        folder.setAge("l.2.gz", 0s);
        folder.settings.purgeAge = 30s;
        folder.configure();
        folder.archives.cleanUp(noon);
        folder.rotate();
        folder.archives.purge(noon + 9s);
        QCOMPARE(folder.content(), "l.0=new l.1=a l.2=b l.3.gz=c");
        folder.archives.purge(noon + 10s);
        QCOMPARE(folder.content(), "l.0=new l.1=a l.3.gz=c");
        folder.archives.purge(noon + 5 * year);
        QCOMPARE(folder.content(), "l.0=new");
        folder.settings.purgeAge = std::chrono::seconds::max();
        folder.configure();
        folder.rotate();
        QCOMPARE(folder.content(), "l.0=new l.1=new");

        Folder fresh;
        fresh.settings.purgeAge = 30s;
        fresh.configure();
        fresh.archives.cleanUp(noon);
        fresh.rotate();
        fresh.rotate(noon + 5 * year);
        QCOMPARE(fresh.content(), "l.0=new");
    }

    // Content under an old name after a shift, lost attributes, new archives that wait for old ones.
    void compresses()
    {
        Folder folder("l.0=old l.1/");
        const std::string text = longText();
        folder.settings.compress = true;
        folder.configure();
        folder.archives.cleanUp(noon);
        folder.rotate(noon, text);
        folder.setAge("l.0", 77s);
        QCOMPARE(::chmod(folder.path("l.0").c_str(), 0640), 0);
        folder.compress(noon, 3);
        folder.rotate(noon, {});
        QCOMPARE(folder.content(), ".l.gz-part l.0 l.1 l.2=old l.3/");
        QVERIFY(!folder.archives.mustCompressFirst());
        folder.rotate();
        QVERIFY(folder.archives.mustCompressFirst());
        folder.compress(noon, 14);
        QCOMPARE(folder.content(), "l.0=new l.1 l.2.gz l.3=old l.4/");
        QVERIFY(!folder.archives.mustCompressFirst());
        folder.compress(noon, 1);
        QCOMPARE(folder.content(), "l.0=new l.1.gz l.2.gz l.3=old l.4/");
        folder.compress(noon, 1);
        QCOMPARE(folder.content(), "l.0.gz l.1.gz l.2.gz l.3=old l.4/");
        folder.compress();
        QCOMPARE(folder.content(), "l.0.gz l.1.gz l.2.gz l.3.gz l.4/");
        QVERIFY(!folder.archives.canCompress(noon + 10s));

        struct stat status = {};
        QCOMPARE(::stat(folder.path("l.2.gz").c_str(), &status), 0);
        QCOMPARE(status.st_mode & 0777u, 0640u);
        QCOMPARE(Archives::Time(std::chrono::seconds(status.st_mtime)), noon - 77s);
        QCOMPARE(folder.run("gzip -t *.gz && gzip -d *.gz"), 0);
        QCOMPARE(folder.content(), "l.0=new l.1 l.2 l.3=old l.4/");
        QVERIFY(folder.read("l.2") == text);
    }

    // History lost to a full disk; a log that waits for what cannot be; attempts without a pause, or none any more.
    void survivesFullDisk()
    {
        Folder folder;
        folder.settings.compress = true;
        folder.configure();
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
        QVERIFY(folder.archives.canCompress(noon + 10s) && folder.archives.canCompress(noon - year));
        folder.rotate();
        QVERIFY(folder.archives.mustCompressFirst());
        folder.compress();
        QCOMPARE(folder.content(), "l.0.gz l.1.gz l.2.gz l.3.gz");
    }

    // Lines lost that are just being written, or an archive's compressed remains under a name that is not its own.
    void compressesWhatIsThere()
    {
        Folder folder;
        folder.settings.compress = true;
        folder.settings.purgeCount = 1;
        folder.configure();
        folder.rotate(noon, longText());
        const int writer = ::open(folder.path("l.0").c_str(), O_RDWR | O_CLOEXEC);
        struct flock range = {};
        range.l_type = F_RDLCK;
        QCOMPARE(::fcntl(writer, F_OFD_SETLK, &range), 0);
        folder.compress();
        QCOMPARE(folder.content(), "l.0");
        ::close(writer);
        folder.compress(noon + 2s, 3);
        QCOMPARE(folder.content(), ".l.gz-part l.0");
        folder.rotate(noon, longText()); // which purges the other
        QCOMPARE(folder.content(), "l.0");
        folder.compress(noon, 3);
        fs::rename(folder.path("l.0"), folder.path("kept"));
        fs::copy(folder.path("kept"), folder.path("l.0"));
        folder.compress();
        QCOMPARE(folder.content(), "kept l.0");
        folder.rotate(noon, longText());
        folder.compress(noon, 3);
        fs::remove(folder.path("l.0"));
        folder.rotate(noon, longText());
        QCOMPARE(folder.content(), "kept l.0");
        folder.compress(noon, 3);
        fs::remove(folder.path(".l.gz-part"));
        folder.put(".l.gz-part=foreign");
        folder.compress();
        QCOMPARE(folder.content(), "kept l.0");
        folder.compress(noon + 10s, 3);
        folder.put("l.0.gz=foreign");
        folder.compress(noon + 10s);
        QCOMPARE(folder.content(), "kept l.0 l.0.gz=foreign");
        folder.configure();
        folder.archives.cleanUp(noon);
        QVERIFY(!folder.archives.canCompress(noon));
    }

    // What a killed process leaves behind that stays, or history that is removed with it.
    void cleansUp()
    {
        for (const auto& [before, after] : {std::pair("l .l.gz-part=x .l.next .l2.next", ".l2.next l"),
                                            {"l .l.next=old l.0=older", "l l.0=old l.1=older"},
                                            {"l .l.next=old l.0=older l.2=oldest", "l l.0=old l.1=older"},
                                            {"l pair=whole", "l l.0.gz"},
                                            {"l l.0=whole l.0.gz=cut", "l l.0.gz=cut l.0=whole"},
                                            {"l l.0/ l.0.gz=x", "l l.0.gz=x l.0/"}}) {
            Folder folder(before);
            folder.run("[ ! -e pair ] || { mv pair l.0; gzip -k l.0; }");
            folder.settings.purgeCount = 2;
            folder.configure();
            QVERIFY(!folder.archives.cleanUp(noon));
            QCOMPARE(folder.content(), after);
        }
    }
};

QTEST_GUILESS_MAIN(tst_Archives)
#include "tst_archives.moc"
