// The worker thread: how it goes to sleep while lines come past its lock, and a file that takes more than 32 bits.

#include "TestPlace.h"

#include "store/LogFile.h"
#include "writer/LogWriter.h"

#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <thread>

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A pipe that a logger's thread writes into.
class Pipe
{
public:
    Pipe()
    {
        settings.path = directory.filePath(u"pipe"_s).toStdString();
        if (::mkfifo(settings.path.c_str(), 0600) == 0)
            pipe = ::open(settings.path.c_str(), O_RDWR | O_CLOEXEC);
        writer->configure(settings);
    }
    ~Pipe()
    {
        writer->finish();
        ::close(pipe);
    }

    bool isThere() const { return pipe >= 0; }

    /// Reads that many bytes. False when they do not come within seconds.
    bool read(std::size_t bytes) const
    {
        while (bytes > 0) {
            pollfd waited = {pipe, POLLIN, 0};
            char buffer[4096];
            if (::poll(&waited, 1, 5000) != 1)
                return false;
            const ssize_t count = ::read(pipe, buffer, std::min(bytes, sizeof buffer));
            if (count <= 0)
                return false;
            bytes -= static_cast<std::size_t>(count);
        }
        return true;
    }

    const std::shared_ptr<Zyr::LogWriter> writer = std::make_shared<Zyr::LogWriter>(&Zyr::LogFile::make);

private:
    const QTemporaryDir directory;
    Zyr::FileSettings settings;
    int pipe = -1;
};

/// While it lives, reserves all of the process's address space except one hole.
class FullAddressSpace
{
public:
    static constexpr std::size_t hole = 1 << 20;

    FullAddressSpace()
    {
        ::mallopt(M_ARENA_MAX, 1); // a thread's own arena would take a part of the hole
        void* const spare = take(hole);
        taken.reserve(5'000);
        for (std::size_t size = SIZE_MAX / 4 + 1; size >= 64 * 1024 && taken.size() < taken.capacity();) {
            if (void* const place = take(size); place != MAP_FAILED)
                taken.emplace_back(place, size);
            else
                size /= 2;
        }
        ::munmap(spare, hole);
    }
    ~FullAddressSpace()
    {
        for (const auto& [place, size] : taken)
            ::munmap(place, size);
    }

private:
    static void* take(std::size_t size)
    {
        return ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    }

    std::vector<std::pair<void*, std::size_t>> taken;
};

/// A store on a full disk.
class FullStore : public Zyr::LineStore
{
public:
    static std::unique_ptr<Zyr::LineStore> make(Zyr::CallWatch&) { return std::make_unique<FullStore>(); }

    void apply(Change& change) override { change = {}; }
    Written write(const Zyr::LineBatch&) override { return {0, std::make_error_code(std::errc::no_space_on_device)}; }
    bool isInLine() const noexcept override { return false; }
    Maintenance maintenanceDue() const noexcept override { return Maintenance::None; }
    void maintain() noexcept override {}
    void close() noexcept override {}
};

class tst_LogWriter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    /// A line that comes while the thread is about to sleep, and is not written until the next one.
    void writesTheLastLineToo()
    {
        const Pipe pipe;
        QVERIFY(pipe.isThere());

        std::minstd_rand random;
        for (int round = 0; round < 30'000; ++round) {
            pipe.writer->push("a");
            const auto until = Clock::now() + random() % 30'000 * 1ns; // as long as the thread takes to write that
            while (Clock::now() < until) {
            }
            pipe.writer->push("b");
            QVERIFY2(pipe.read(sizeof "a\nb\n" - 1), qPrintable(u"in round %1"_s.arg(round)));
        }
    }

    /// Several threads that end a logger whose disk is full, while others log: one makes it begin anew before another
    /// one has counted what is given up, and that one waits for a thread that nobody ends.
    void endsOftenEnough()
    {
        constexpr int writers = 20, finishersPerWriter = 3;
        std::atomic<int> ended = 0;
        std::atomic<bool> logs = true;
        std::vector<std::thread> threads;
        for (int i = 0; i < writers; ++i) {
            const auto writer = std::make_shared<Zyr::LogWriter>(&FullStore::make);
            writer->push("a");
            for (int j = 0; j < finishersPerWriter; ++j) {
                threads.emplace_back([&, writer] {
                    writer->finish();
                    ++ended;
                });
            }
            threads.emplace_back([&, writer] {
                while (logs) {
                    writer->push("a");
                    std::this_thread::sleep_for(1us);
                }
                writer->finish();
            });
        }
        const bool all = QTest::qWaitFor([&] { return ended == writers * finishersPerWriter; }, 30'000);
        logs = false;
        if (!all)
            qFatal("%d of %d have not ended", writers * finishersPerWriter - ended, writers * finishersPerWriter);
        for (std::thread& each : threads)
            each.join();
    }

    /// Lines lost, a crash or a hang where the bound is larger than the free address space.
    void waitsForMemory()
    {
        if (isSanitized)
            QSKIP("Sanitizers need address space of their own.");
        constexpr int lines = 5'000;
        const Pipe pipe;
        QVERIFY(pipe.isThere());
        const std::string line(1023, 'x'); // all of them need five times the free address space
        pipe.writer->setLimits({Zyr::QueueLimits::maxBytes, Zyr::QueueLimits::Overflow::Wait});
        pipe.writer->push(line);
        QVERIFY(pipe.read(line.size() + 1));
        std::optional<FullAddressSpace> full;
        std::atomic<bool> begun = false;
        std::thread logs([&] {
            begun.wait(false);
            for (int i = 0; i < lines; ++i)
                pipe.writer->push(line);
        });
        full.emplace();
        begun = true;
        begun.notify_one();
        std::this_thread::sleep_for(500ms); // until the memory is full, and longer
        const bool all = pipe.read(lines * (line.size() + 1));
        full.reset();
        logs.join();
        QVERIFY2(all, "lines are missing");
    }

    /// Lines lost because others hold the memory for a moment, or free it only after the waiting callers were woken.
    void takesTurnsWithMemory()
    {
        if (isSanitized)
            QSKIP("Sanitizers need address space of their own.");
        const QTemporaryDir directory;
        Zyr::FileSettings settings;
        settings.path = directory.filePath(u"log"_s).toStdString();
        const auto writer = std::make_shared<Zyr::LogWriter>(&Zyr::LogFile::make);
        writer->configure(settings);
        writer->setLimits({Zyr::QueueLimits::maxBytes, Zyr::QueueLimits::Overflow::Wait});
        const auto size = [&] { return QFileInfo(directory.filePath(u"log"_s)).size(); };
        writer->push("begun");
        QTRY_COMPARE(size(), 6);                                     // now the worker has all memory of its own
        const std::string line(FullAddressSpace::hole / 5 * 3, 'x'); // one at a time
        std::optional<FullAddressSpace> full;
        std::atomic<bool> begun = false;
        std::vector<std::thread> logs;
        for (int i = 0; i < 3; ++i) {
            logs.emplace_back([&] {
                begun.wait(false);
                for (int j = 0; j < 5; ++j)
                    writer->push(line);
            });
        }
        full.emplace();
        begun = true;
        begun.notify_all();
        for (std::thread& each : logs)
            each.join();
        full.reset();
        writer->finish();
        QCOMPARE(size(), 6 + 15 * qint64(line.size() + 1));
    }

    /// A caller that waits as long as others go on logging.
    void givesMemoryUp()
    {
        if (isSanitized)
            QSKIP("Sanitizers need address space of their own.");
        const Pipe pipe;
        QVERIFY(pipe.isThere());
        pipe.writer->setLimits({Zyr::QueueLimits::maxBytes, Zyr::QueueLimits::Overflow::Wait});
        const std::string small(100, 'x'), large(2 * FullAddressSpace::hole, 'x');
        std::atomic<bool> ends = false, isBack = false;
        std::thread logs([&] {
            while (!ends)
                pipe.writer->push(small);
        });
        std::thread reads([&] {
            while (!ends && pipe.read(64 * 1024)) {
            }
        });
        std::atomic<bool> begun = false;
        std::thread waits([&] {
            begun.wait(false);
            pipe.writer->push(large);
            isBack = true;
        });
        QTest::qWait(100);
        std::optional<FullAddressSpace> full(std::in_place);
        begun = true;
        begun.notify_one();
        const bool gaveUp = QTest::qWaitFor([&] { return isBack.load(); }, 10'000);
        full.reset();
        ends = true;
        for (std::thread* const each : {&logs, &reads, &waits})
            each->join();
        QVERIFY(gaveUp);
    }

    /// Sizes and places of 32 bits: no line, one in the middle of the file, or a limit that is never reached.
    void writesBehindThreeGigabytes()
    {
        const QTemporaryDir directory;
        const QString log = directory.filePath(u"log"_s), archive = directory.filePath(u"log.0"_s);
        constexpr qint64 size = 3LL << 30;
        QVERIFY(QFile(log).open(QIODevice::WriteOnly));
        QVERIFY(QFile::resize(log, size)); // without a block on the disk
        const auto writer = std::make_shared<Zyr::LogWriter>(&Zyr::LogFile::make);
        Zyr::FileSettings settings;
        settings.path = log.toStdString();
        writer->configure(settings);
        writer->push("a");
        writer->finish();
        QFile file(log);
        QCOMPARE(file.size(), size + 3); // the line that the file ended with is ended first
        QVERIFY(file.open(QIODevice::ReadOnly) && file.seek(size));
        QCOMPARE(file.readAll(), "\na\n");

        settings.rotation.kind = Zyr::RotationRule::Kind::Size;
        settings.rotation.size = size;
        writer->configure(settings);
        writer->push("b");
        writer->finish();
        QCOMPARE(QFileInfo(archive).size(), size + 3);
        QCOMPARE(QFileInfo(log).size(), 2);
    }
};

QTEST_APPLESS_MAIN(tst_LogWriter)

#include "tst_logwriter.moc"
