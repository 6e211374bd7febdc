#include "store/archive/ArchiveCompressor.h"

#include <Poco/DeflatingStream.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <optional>
#include <ostream>
#include <streambuf>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

namespace {

constexpr std::size_t blockSize = 16 * 1024; // on the stack
constexpr int blocksPerSlice = 4;
constexpr std::chrono::seconds longestSync(10);
constexpr int always = O_NONBLOCK | O_NOCTTY;

/// What POCO's deflating stream, which writes nothing at all without input, leaves out.
constexpr char emptyGzip[20] = {'\x1f', '\x8b', 8, 0, 0, 0, 0, 0, 0, 3, 3};

/// The temporary file as the deflating stream writes to it.
class Output : public std::streambuf
{
public:
    explicit Output(CallWatch& itsWatch)
        : watch(itsWatch)
    {
    }

    TrackedFile file;

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override
    {
        if (!file) // abandoned: the deflating stream writes its end nevertheless
            return count;
        for (std::streamsize written = 0; written < count;) {
            const ssize_t step =
                watch([&] { return ::write(file.get(), bytes + written, std::size_t(count - written)); });
            if (step <= 0)
                return written;
            written += step;
        }
        return count;
    }

private:
    CallWatch& watch;
};

bool isSameFile(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Empty and for nobody else to read.
bool createFile(const LogPlace& log, const std::string& name, TrackedFile& file, CallWatch& watch)
{
    const auto create = [&] {
        return log.open(name, O_WRONLY | O_CREAT | O_EXCL | always, file, watch, S_IRUSR | S_IWUSR);
    };
    return create() || (errno == EEXIST && log.remove(name, watch) && create());
}

} // namespace

struct ArchiveCompressor::Work
{
    Work(std::shared_ptr<const LogPlace> itsLog, const std::string& itsTemporary, CallWatch& watch)
        : log(std::move(itsLog))
        , temporary(itsTemporary)
        , output(watch)
        , stream(&output)
    {
    }

    const std::shared_ptr<const LogPlace> log;
    const std::string temporary;
    TrackedFile input;
    struct stat status = {}; ///< of the input, before it is read
    std::uint64_t consumed = 0;
    Output output;
    std::ostream stream;
    std::optional<Poco::DeflatingStreamBuf> deflated; // last, since it writes when it is destroyed
};

ArchiveCompressor::ArchiveCompressor(CallWatch& itsWatch)
    : watch(itsWatch)
{
}

ArchiveCompressor::~ArchiveCompressor()
{
    abandon();
}

ArchiveCompressor::Result ArchiveCompressor::start(std::shared_ptr<const LogPlace> log, const std::string& archive,
                                                   const std::string& temporary)
{
    abandon();
    work = std::make_unique<Work>(std::move(log), temporary, watch);
    const Result result = begin(archive);
    if (result != Result::Working)
        abandon();
    return result;
}

ArchiveCompressor::Result ArchiveCompressor::begin(const std::string& archive)
{
    TrackedFile& input = work->input;
    const auto open = [&](int flags) { return work->log->open(archive, flags | always, input, watch); };
    if (!open(O_RDWR) && // a lock that keeps writers off needs that
        ((errno != EACCES && errno != EPERM && errno != EROFS) || !open(O_RDONLY)))
        return errno == ENOENT ? Result::Gone : Result::Failed;
    if (isBeingWritten())
        return Result::Busy;
    if (watch([&] { return ::fstat(input.get(), &work->status); }) != 0)
        return Result::Failed;
    if (!S_ISREG(work->status.st_mode))
        return Result::Gone;
    if (!createFile(*work->log, work->temporary, work->output.file, watch))
        return Result::Failed;
    try {
        work->deflated.emplace(work->stream, Poco::DeflatingStreamBuf::STREAM_GZIP, Z_DEFAULT_COMPRESSION);
    } catch (const std::exception&) { // out of memory, by one type or another
        return Result::Failed;
    }
    return Result::Working;
}

/// Whoever appends holds a lock, and looks under it whether the file is still the log. So once nobody holds one, the
/// archive is never written again.
bool ArchiveCompressor::isBeingWritten()
{
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    const int file = work->input.get();
    const auto set = [&] { return ::fcntl(file, F_OFD_SETLK, &range); };
    if (watch(set) != 0)
        return errno == EAGAIN || errno == EACCES; // other errors: there are no such locks here
    range.l_type = F_UNLCK;
    watch(set);
    return false;
}

ArchiveCompressor::Result ArchiveCompressor::compressSlice(const std::string& archive)
{
    if (!work)
        return Result::Failed;
    Result result = Result::Failed;
    try {
        result = readSlice(archive);
    } catch (const std::exception&) { // of the deflating stream, where the file could not be written
    }
    if (result != Result::Working)
        abandon();
    return result;
}

ArchiveCompressor::Result ArchiveCompressor::readSlice(const std::string& archive)
{
    char block[blockSize];
    for (int blocks = 0; blocks < blocksPerSlice; ++blocks) {
        const ssize_t count = watch([&] { return ::read(work->input.get(), block, sizeof block); });
        if (count == 0)
            return finish(archive);
        if (count < 0 || work->deflated->sputn(block, count) != count)
            return Result::Failed;
        work->consumed += std::uint64_t(count);
    }
    return Result::Working;
}

ArchiveCompressor::Result ArchiveCompressor::finish(const std::string& archive)
{
    const int output = work->output.file.get();
    const LogPlace& log = *work->log;
    if (work->consumed > 0)
        work->deflated->close();
    else
        work->stream.write(emptyGzip, sizeof emptyGzip);
    if (!work->stream.good())
        return Result::Failed;

    struct stat status = {};
    if (!log.status(archive, status, watch))
        return errno == ENOENT ? Result::Gone : Result::Failed;
    if (!isSameFile(status, work->status))
        return Result::Gone;
    if (std::uint64_t(status.st_size) != work->consumed) // written to although there are no locks
        return Result::Failed;
    copyAccess(status, output, watch);
    const timespec times[] = {status.st_atim, status.st_mtim};
    watch([&] { return ::futimens(output, times); });
    if (watch([&] { return ::fdatasync(output); }, longestSync) != 0)
        return Result::Failed;

    // Somebody else may have taken the temporary file for a left-over.
    if (watch([&] { return ::fstat(output, &status); }) != 0 || status.st_nlink == 0)
        return Result::Failed;
    if (log.renameToFree(work->temporary, archive + ".gz", watch))
        return Result::Failed;
    work->output.file.close(watch); // so that it is not removed as the temporary file
    log.synchronize(watch);         // before the other name goes
    log.remove(archive, watch);
    return Result::Done;
}

void ArchiveCompressor::abandon() noexcept
{
    if (!work)
        return;
    if (work->output.file) // in a forked child it is closed and left to the parent
        work->log->remove(work->temporary, watch);
    work->output.file.close(watch);
    work->input.close(watch);
    work.reset();
}

bool holdsAllOf(const LogPlace& log, const std::string& gzipped, const std::string& plain, CallWatch& watch)
{
    struct stat whole = {};
    struct stat part = {};
    TrackedFile file;
    std::uint8_t size[4] = {};
    if (!log.status(plain, whole, watch) || !log.open(gzipped, O_RDONLY | always, file, watch) ||
        watch([&] { return ::fstat(file.get(), &part); }) != 0 || part.st_size < off_t(sizeof emptyGzip) ||
        watch([&] { return ::pread(file.get(), size, sizeof size, part.st_size - off_t(sizeof size)); }) !=
            ssize_t(sizeof size))
        return false;
    std::uint32_t told = 0;
    for (std::size_t byte = sizeof size; byte-- > 0;)
        told = told << 8 | size[byte];
    return told == std::uint32_t(whole.st_size);
}

} // namespace Zyr
