// What the library says about itself, and what becomes of the application when nobody takes that: nothing.

#include "SettingsProbe.h"
#include "TestPlace.h"

#include "system/HeldSignals.h"

#include <ZyrLogger/ClassLogger.h>

#include <QtCore/QScopeGuard>
#include <QtTest/QtTest>

#include <iostream>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Zyr::Misc::reportProblem;

namespace {

/// A process that waits longer for something ends.
constexpr unsigned maxTestTime = isSanitized ? 100 : 20;

void limit(__rlimit_resource resource, rlim_t value)
{
    rlimit limits;
    getrlimit(resource, &limits);
    limits.rlim_cur = std::min(value, limits.rlim_max);
    right &= setrlimit(resource, &limits) == 0;
}

/// A standard error that is read only by read().
class Unread
{
public:
    explicit Unread(const QByteArray& itsKind)
        : kind(itsKind)
    {
        int ends[2];
        if (kind == "terminal") {
            right &= openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) == 0;
            termios raw;
            tcgetattr(ends[1], &raw);
            cfmakeraw(&raw);
            tcsetattr(ends[1], TCSANOW, &raw);
        } else {
            right &= (kind == "socket" ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends)) == 0;
        }
        end = ends[0];
        fcntl(end, F_SETFL, O_NONBLOCK);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        if (kind == "pipe of one who never waits")
            fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
    }
    ~Unread()
    {
        dup2(saved, STDERR_FILENO);
        close(saved);
        close(end);
    }

    void fill() const
    {
        if (kind == "terminal") {
            tcflow(STDERR_FILENO, TCOOFF);
            return;
        }
        const int flags = fcntl(STDERR_FILENO, F_GETFL);
        fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
        while (write(STDERR_FILENO, "x", 1) == 1)
            continue;
        fcntl(STDERR_FILENO, F_SETFL, flags);
    }

    void drain() const
    {
        if (kind == "terminal")
            tcflow(STDERR_FILENO, TCOON);
        read();
    }

    /// All that is there.
    QByteArray read() const
    {
        QByteArray all;
        char block[4096];
        pollfd any = {end, POLLIN, 0};
        while (poll(&any, 1, 100) > 0) { // a terminal takes a moment
            const ssize_t count = ::read(end, block, sizeof block);
            if (count <= 0)
                break;
            all.append(block, count);
        }
        return all;
    }

private:
    const QByteArray kind;
    const int saved = dup(STDERR_FILENO);
    int end;
};

void closePipe(int file)
{
    int ends[2];
    right &= pipe(ends) == 0;
    dup2(ends[1], file);
    close(ends[0]);
    close(ends[1]);
}

bool isPending(int signal)
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal);
}

bool isBlocked(int signal)
{
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, signal);
}

/// One is run in a process of its own.
class Scenarios : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    // An application that a signal ends at a file that may not become larger, or whose callback does not get its own
    // signals; a wrong reason, or none; settings that are not used, half written, or never read once they can be.
    void limitedSettings()
    {
        const QByteArray small = "[S]\nv=1\n";
        const QByteArray large = small + ';' + QByteArray(990, 'x') + '\n'; // 1000
        const auto added = qsizetype(strlen("added=1\n"));
        const std::pair<QByteArray, qsizetype> files[] = {
            {small, small.size()},
            {large, large.size()},
            {"\xef\xbb\xbf" + large, large.size() + added},
            {large, large.size() + added},
            {small, 0},
        };
        for (const auto& [text, maxSize] : files) {
            QFile file(probeFile);
            right &= file.open(QIODevice::WriteOnly) && file.write(text) > 0;
            file.close();
            const Unread errors("pipe");
            limit(RLIMIT_FSIZE, rlim_t(maxSize));
            SettingsProbe probe([](SettingsProbe& self, QSettings& settings, bool first) {
                right &= !isBlocked(SIGXFSZ) || !first;
                addKey(self, settings, first);
            });
            right &= probe.startConfigFileWatcher() && !isBlocked(SIGXFSZ) && !isPending(SIGXFSZ);
            limit(RLIMIT_FSIZE, RLIM_INFINITY);
            right &= maxSize > 0 || QTest::qWaitFor([&] { return probe.loads().contains('|'); });
            probe.stopConfigFileWatcher();
            const QByteArray error = errors.read();
            right &= file.open(QIODevice::ReadOnly);
            std::cout << probe.loads().toStdString() << ' ' << file.size() - text.size()
                      << error.mid(qMax(0, error.indexOf(": "))).trimmed().toStdString() << std::endl;
        }
    }

    // The same for reports and for printed lines: a line behind a piece of another, or a loss that is not reported.
    void limitedOutput()
    {
        closePipe(STDERR_FILENO);
        Zyr::ClassLogger(u"Valve"_s).getLogger().flushFinal();
        reportProblem(u"lost"_s, u"x"_s);
        dup2(open("reports", O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
        reportProblem(u"a"_s, u"b"_s);
        limit(RLIMIT_FSIZE, 75);
        for (int i = 0; i < 3; ++i)
            reportProblem(u"lost"_s, QString(10, u'x'));
        const int output = dup(STDOUT_FILENO);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        say(u"lost"_s);
        closePipe(STDOUT_FILENO);
        say(u"lost"_s);
        dup2(output, STDOUT_FILENO);
        limit(RLIMIT_FSIZE, RLIM_INFINITY);
        reportProblem(u"c"_s, u"d"_s);
        right &= !isPending(SIGPIPE) && !isPending(SIGXFSZ);
        say(u"printed"_s);
    }

    // A first load that waits for the reader of standard error.
    void fullAtLoad()
    {
        alarm(maxTestTime);
        const Unread errors("pipe");
        errors.fill();
        say(u"x"_s);
        errors.drain();
        reportProblem(u"a"_s, u"b"_s);
        std::cout << errors.read().toStdString();
    }

    // Records that are not written since the thread that writes them waits for that, and so do those who log.
    void fullAtRotation()
    {
        alarm(maxTestTime);
        say(u"first"_s);
        right &= QTest::qWaitFor([] { return QFileInfo(u"Quadel.log"_s).size() > 0; });
        const Unread errors("pipe");
        errors.fill();
        right &= QDir().mkpath(u".Quadel.log.next/x"_s); // where a new file is begun
        for (int i = 0; i < 2'000; ++i)
            say(QString(100, u'x'));
        right &= QTest::qWaitFor([] { return QFileInfo(u"Quadel.log"_s).size() > 200'000; });
        errors.drain();
        reportProblem(u"a"_s, u"b"_s);
        std::cout << errors.read().toStdString();
    }

    // A shutdown that hangs.
    void fullAtEnd()
    {
        alarm(maxTestTime);
        static const Unread errors("pipe");
        errors.fill();
        say(u"x"_s);
    }

    // A signal left behind, one that is taken although it was there before or came from somebody else, a lost errno.
    void holdsSignals()
    {
        alarm(maxTestTime);
        closePipe(STDERR_FILENO);
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        const auto writeHeld = [](const char* meanwhile) {
            const Zyr::HeldSignals held;
            right &= system(meanwhile) == 0;
            errno = 0;
            right &= write(STDERR_FILENO, "x", 1) == -1;
        };
        writeHeld(":");
        right &= errno == EPIPE && !isPending(SIGPIPE) && !isPending(SIGXFSZ) && !isBlocked(SIGXFSZ);
        for (int round = 0; round < 2; ++round) {
            writeHeld(round == 0 ? "kill -PIPE $PPID" : ":");
            right &= isPending(SIGPIPE);
        }
        siginfo_t info = {};
        right &= sigwaitinfo(&pipe, &info) == SIGPIPE && info.si_pid == getpid(); // of the second write
        right &= isPending(SIGPIPE) && sigwaitinfo(&pipe, &info) == SIGPIPE && info.si_pid != getpid();
        right &= !isPending(SIGPIPE);
        std::thread([] { // which is not the main one, and writes nothing itself
            {
                const Zyr::HeldSignals held;
                right &= system("kill -PIPE $PPID") == 0;
            }
            right &= isPending(SIGPIPE);
        })
            .join();
    }
};

} // namespace

class tst_Problems : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void scenario_data()
    {
        QTest::addColumn<QByteArray>("channelKeys");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<QByteArray>("reports");
        const auto row = [](const char* name, const char* keys, const char* output, const char* reports = "") {
            QTest::newRow(name) << QByteArray(keys) << QByteArray(output) << QByteArray(reports);
        };
        row("limitedSettings", "",
            "first 1 0: missing values cannot be added: no temporary file can be made: File too large\n"
            "first 1 0: missing values cannot be added: the system gives no memory file: File too large\n"
            "first 1 0: missing values cannot be added: File too large\n"
            "first 1 8\n"
            "first |1 8: cannot be read now, so defaults are used: the system gives no memory file: File too large\n");
        row("limitedOutput", "", "Invalid logger - printed\n",
            "standard error: 1 report before this could not be written\na: b\nlost: xxxxxx\n"
            "standard error: 3 reports before this could not be written\nc: d\n");
        row("fullAtLoad", "rotation=sometimes",
            "\nException on creating logger\n"
            "standard error: 1 report before this could not be written\na: b\n");
        row("fullAtRotation", "rotation=1 K", "standard error: 1 report before this could not be written\na: b\n");
        row("fullAtEnd", "path=/dev/full", "");
        row("holdsSignals", "", "");
    }

    void scenario()
    {
        QFETCH(const QByteArray, channelKeys);
        const TestPlace place;
        place.write(u"Quadel_Log.ini"_s, settingsFile({}, channelKeys));
        // A value of a type that Qt does not know, which it warns of.
        place.write(u"_Valve_Log.ini"_s, settingsFile("textFilters=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x2x\\0)"));
        const int status = runScenario(place, QString::fromUtf8(QTest::currentDataTag()));
        QTEST(place.read(u"output"_s), "output");
        QVERIFY2(status == 0, place.read(u"error"_s).constData());
        QCOMPARE(QDir(place.path({})).entryList({u".?*"_s}, QDir::Files | QDir::Hidden), QStringList());
        QTEST(place.read(u"reports"_s), "reports");
    }

    void unread_data()
    {
        QTest::addColumn<bool>("opensAnew");
        for (const char* const kind : {"pipe", "pipe of one who never waits", "socket", "terminal"})
            QTest::newRow(kind) << true;
        QTest::newRow("pipe that cannot be opened") << false;
        QTest::newRow("terminal that cannot be opened") << false;
    }

    // A caller that waits for the reader of standard error; other processes whose standard error became non-blocking; a
    // loss that is not reported, or that a child reports as its own.
    void unread()
    {
        QFETCH(const bool, opensAnew);
        alarm(maxTestTime);
        QByteArray kind = QTest::currentDataTag();
        const Unread errors(opensAnew ? kind : kind.split(' ').first());
        const int flags = fcntl(STDERR_FILENO, F_GETFL);
        errors.fill();
        if (!opensAnew)
            limit(RLIMIT_NOFILE, 1);
        for (int i = 0; i < 3; ++i)
            reportProblem(u"lost"_s, QString(10'000, u'x'));
        errors.drain();
        const pid_t child = fork();
        if (child == 0) {
            reportProblem(u"c"_s, u"d"_s);
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        reportProblem(u"a"_s, u"b"_s);
        reportProblem(u"e"_s, u"f"_s);
        limit(RLIMIT_NOFILE, 1024);
        QCOMPARE(errors.read(), "c: d\nstandard error: 3 reports before this could not be written\na: b\ne: f\n");
        QCOMPARE(fcntl(STDERR_FILENO, F_GETFL), flags);
        alarm(0);
    }

    void printable_data()
    {
        QTest::addColumn<QString>("problem");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* name, const QString& problem, const QString& line) {
            QTest::newRow(name) << problem << line;
        };
        row("texts", u"é 漢 🙂 \\n"_s, u"é 漢 🙂 \\n"_s);
        row("line ends", u"1\n2\r\n3\t4\u2028"_s, u"1 2  3 4 "_s);
        row("terminal", u"\x1b[2J\x07\b\u009b"_s, u"\\x1b[2J\\x07\\x08\\x9b"_s);
        row("end of string", QString(QChar()), u"\\x00"_s);
        row("directions", u"\u202e\u2066\u200f"_s, u"\\u202e\\u2066\\u200f"_s);
        row("beyond 16 bits", QString::fromUcs4(U"\U000e0001"), u"\\U000e0001"_s);
        row("halves", QString(QChar(0xd83d)) + QChar(0xd83d) + QChar(0xde42) + QChar(0xde42), u"\\ud83d🙂\\ude42"_s);
        // Without "é: " and the ellipsis, the line end and a break before it.
        row("long", QString(5'000, u'é'), QString(2043, u'é') + u'…');
        row("cut in a number", QString(4085, u'x') + u"\x1b"_s + QString(10, u'x'), QString(4085, u'x') + u'…');
    }

    // A value that moves a terminal's cursor or turns a line round; one that is split, or mixes with others.
    void printable()
    {
        QFETCH(const QString, problem);
        QTEST(QString::fromUtf8(errorsOf([&] { reportProblem(u"é"_s, problem); })).remove(u"é: "_s).chopped(1), "line");
    }
};

int main(int count, char* words[])
{
    return runTest(count, words, Scenarios(), tst_Problems());
}

#include "tst_problems.moc"
