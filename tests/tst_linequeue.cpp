// Lines of several threads through the queue, as its owner uses it: nothing torn, lost, twice or out of order.

#include "queue/LineQueue.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

using Random = std::minstd_rand;
using Clock = std::chrono::steady_clock;

static constexpr std::size_t bound = 256 * 1024;
static constexpr std::size_t longLine = 50 * 1024; // in a chunk of its own
static constexpr unsigned threadCount = 3;
static constexpr unsigned linesPerThread = 200'000;
static constexpr unsigned linesBetweenRests = 50;
static constexpr std::chrono::seconds patience{10};

/// What all threads had queued before a line was: these stand before it in the queue.
using Progress = std::array<unsigned, threadCount>;

static std::string lineOf(unsigned thread, const Progress& before, std::size_t padding)
{
    std::string line = std::to_string(thread);
    for (const unsigned lines : before)
        line += ' ' + std::to_string(lines);
    return line + ' ' + std::string(padding, '.') + '|';
}

/// Alternates between lines that fill a chunk's space and lines so short that they fill its table.
static std::size_t randomPadding(Random& random, unsigned number)
{
    if (number / 1000 % 2 == 1)
        return random() % 20;
    const auto kind = random() % 2000;
    return kind < 4 ? longLine : kind < 200 ? random() % 1500 : random() % 100;
}

class Owner
{
public:
    void push(std::string_view line)
    {
        if (lines.append(line))
            return;
        std::unique_lock lock(mutex);
        while (!lines.appendLocked(line)) {
            const std::size_t bytes = lines.chunkBytes(line);
            if (lines.mayGrow(bytes)) {
                lines.reserve(bytes);
                lock.unlock();
                Zyr::LineChunk* const chunk = Zyr::LineChunk::map(bytes, false);
                lock.lock();
                if (lines.add(chunk, bytes, line))
                    return;
            } else {
                lock.unlock();
                std::this_thread::yield();
                lock.lock();
            }
        }
    }

    /// Some of the first lines as one text. Occasionally closes the fast path, or changes the bound.
    std::string take(Random& random)
    {
        std::unique_lock lock(mutex);
        lines.openFastPath(random() % 4 != 0);
        if (random() % 100 == 0)
            lines.setBound(random() % 2 == 0 ? bound : bound / 4);
        const Zyr::LineBatch batch = lines.front(random() % 65536);
        lock.unlock();
        const std::size_t count = random() % 2 == 0 ? batch.lines() : random() % (batch.lines() + 1);
        std::array<iovec, Zyr::LineBatch::maxRuns> pieces;
        const std::size_t used = batch.pieces(0, batch.bytesOf(count), pieces);
        std::string text;
        for (std::size_t i = 0; i < used; ++i)
            text.append(static_cast<const char*>(pieces[i].iov_base), pieces[i].iov_len);
        lock.lock();
        lines.pop(count);
        Zyr::LineChunk* const freed = lines.takeFreed();
        lock.unlock();
        Zyr::LineChunk::unmap(freed);
        return text;
    }

    std::size_t size()
    {
        const std::lock_guard lock(mutex);
        return lines.size();
    }

private:
    std::mutex mutex;
    Zyr::LineQueue lines{bound};
};

/// Says what is wrong with a line; follows how far each thread has come.
static std::string mistakeIn(const std::string& line, Progress& seen)
{
    unsigned thread = 0;
    Progress before = {};
    const char* at = line.data();
    const char* const end = at + line.size();
    at = std::from_chars(at, end, thread).ptr;
    for (unsigned& lines : before)
        at = at == end ? end : std::from_chars(at + 1, end, lines).ptr;
    const auto padding = end - at - 2;
    if (thread >= threadCount || padding < 0 || line != lineOf(thread, before, std::size_t(padding)))
        return "torn";
    if (before[thread] != seen[thread]++)
        return "missing, twice or out of its thread's order";
    for (unsigned other = 0; other < threadCount; ++other) {
        if (seen[other] < before[other])
            return "before a line that was queued earlier";
    }
    return {};
}

class tst_LineQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// A place given to two lines, a line taken before it is copied, or one of a chunk's earlier use taken for a new
    /// one.
    void keepsEveryLineInOrder()
    {
        Owner owner;
        std::array<std::atomic<unsigned>, threadCount> queued = {};
        std::vector<std::thread> threads;
        for (unsigned thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&, thread] {
                Random random(thread + 1);
                for (unsigned number = 0; number < linesPerThread; ++number) {
                    Progress before;
                    std::copy(queued.begin(), queued.end(), before.begin());
                    owner.push(lineOf(thread, before, randomPadding(random, number)));
                    ++queued[thread];
                    if (number % linesBetweenRests == 0) // so that the queue is empty now and then
                        std::this_thread::sleep_for(std::chrono::microseconds(10));
                }
            });
        }

        Progress seen = {};
        std::string mistake;
        Random random(threadCount + 1);
        auto limit = Clock::now() + patience;
        const auto isComplete = [](const auto& counts) {
            return std::all_of(counts.begin(), counts.end(), [](unsigned count) { return count == linesPerThread; });
        };
        while (!isComplete(queued) || owner.size() > 0) {
            const std::string text = owner.take(random);
            if (!text.empty())
                limit = Clock::now() + patience;
            else if (Clock::now() > limit)
                qFatal("no line comes any more, and there are %zu", owner.size());
            for (std::size_t from = 0; from < text.size() && mistake.empty();) {
                const std::size_t end = std::min(text.find('\n', from), text.size());
                const std::string line = text.substr(from, end - from);
                mistake = mistakeIn(line, seen);
                if (!mistake.empty())
                    mistake += ": " + line.substr(0, 200);
                from = end + 1;
            }
        }
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(mistake, std::string());
        QVERIFY(isComplete(seen));
    }
};

QTEST_APPLESS_MAIN(tst_LineQueue)

#include "tst_linequeue.moc"
