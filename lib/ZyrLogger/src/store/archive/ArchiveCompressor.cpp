// The compression of one archive, in slices between which the worker thread writes lines.

#include "store/archive/ArchiveCompressor.h"

#include "store/archive/ArchiveNames.h"
#include "system/FileCalls.h"
#include "system/FileLocks.h"

#include <Poco/DeflatingStream.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <optional>
#include <ostream>
#include <streambuf>
#include <utility>

#include <fcntl.h>

namespace Zyr {

namespace {

constexpr std::size_t blockSize = 16 * 1024; // on the stack
constexpr int blocksPerSlice = 4;

/// For an empty archive: POCO's deflating stream writes nothing at all without input.
constexpr char emptyGzip[20] = {'\x1f', '\x8b', 8, 0, 0, 0, 0, 0, 0, 3, 3};

/// Makes the temporary file a stream for the deflating stream to write to.
class Output : public std::streambuf
{
public:
    explicit Output(CallWatch& itsWatch)
        : watch(itsWatch)
    {
    }

    ForkClosedFile file;

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override
    {
        if (!file) // abandoned: the deflating stream still writes its trailer
            return count;
        for (std::streamsize written = 0; written < count;) {
            const ssize_t step = FileCalls::write(file.get(), bytes + written, std::size_t(count - written), watch);
            if (step <= 0)
                return written;
            written += step;
        }
        return count;
    }

private:
    CallWatch& watch;
};

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
    ForkClosedFile input;
    struct stat status = {}; ///< of the input, before it is read
    std::uint64_t consumed = 0;
    Output output;
    std::ostream stream;
    std::optional<Poco::DeflatingStreamBuf> deflated; // last: its destructor writes to `stream`
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
    ForkClosedFile& input = work->input;
    const auto open = [&](int flags) { return work->log->open(archive, flags, input, watch); };
    if (!open(O_RDWR) && // the exclusive lock needs write access
        ((errno != EACCES && errno != EPERM && errno != EROFS) || !open(O_RDONLY)))
        return errno == ENOENT ? Result::Gone : Result::Failed;
    if (isBeingWritten())
        return Result::Busy;
    if (!FileCalls::status(input.get(), work->status, watch))
        return Result::Failed;
    if (!S_ISREG(work->status.st_mode))
        return Result::Gone;
    if (!work->log->create(work->temporary, Directory::Existing::Remove, work->output.file, watch))
        return Result::Failed;
    try {
        work->deflated.emplace(work->stream, Poco::DeflatingStreamBuf::STREAM_GZIP, Z_DEFAULT_COMPRESSION);
    } catch (const std::exception&) { // bad_alloc, or POCO's zlib exception
        return Result::Failed;
    }
    return Result::Working;
}

/// Writers hold a shared lock while they append, and check under it whether the file is still the log. So once nobody
/// holds one, the archive is never written again.
bool ArchiveCompressor::isBeingWritten()
{
    const int file = work->input.get();
    if (!FileLocks::exclude(file, watch))
        return true;
    FileLocks::release(file, watch);
    return false;
}

ArchiveCompressor::Result ArchiveCompressor::compressSlice(const std::string& archive)
{
    if (!work)
        return Result::Failed;
    Result result = Result::Failed;
    try {
        result = readSlice(archive);
    } catch (const std::exception&) { // the deflating stream's, when the file cannot be written
    }
    if (result != Result::Working)
        abandon();
    return result;
}

ArchiveCompressor::Result ArchiveCompressor::readSlice(const std::string& archive)
{
    char block[blockSize];
    for (int blocks = 0; blocks < blocksPerSlice; ++blocks) {
        const ssize_t count = FileCalls::read(work->input.get(), block, sizeof block, watch);
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
    if (std::uint64_t(status.st_size) != work->consumed) // another writer, on a file system without locks
        return Result::Failed;
    FileCalls::copyAccess(status, output, watch);
    FileCalls::copyTimes(status, output, watch);
    if (!FileCalls::synchronize(output, watch))
        return Result::Failed;

    // Another process may have removed the temporary file as a leftover.
    if (!FileCalls::status(output, status, watch) || status.st_nlink == 0)
        return Result::Failed;
    if (log.renameToFree(work->temporary, archive + std::string(gzipEnding), watch))
        return Result::Failed;
    work->output.file.close(watch); // so that abandon() removes nothing
    log.synchronize(watch);         // before the plain file is removed
    log.remove(archive, watch);
    return Result::Done;
}

void ArchiveCompressor::abandon() noexcept
{
    if (!work)
        return;
    if (work->output.file) // closed in a forked child: the parent goes on with it
        work->log->remove(work->temporary, watch);
    work->output.file.close(watch);
    work->input.close(watch);
    work.reset();
}

bool holdsAllOf(const LogPlace& log, const std::string& gzipped, const std::string& plain, CallWatch& watch)
{
    struct stat whole = {};
    struct stat part = {};
    ForkClosedFile file;
    std::uint8_t size[4] = {};
    constexpr auto sizeBytes = ssize_t(sizeof size);
    if (!log.status(plain, whole, watch) || !log.open(gzipped, O_RDONLY, file, watch) ||
        !FileCalls::status(file.get(), part, watch) || part.st_size < off_t(sizeof emptyGzip) ||
        FileCalls::readAt(file.get(), part.st_size - sizeBytes, size, sizeof size, watch) != sizeBytes)
        return false;
    std::uint32_t sizeInTrailer = 0;
    for (std::size_t byte = sizeof size; byte-- > 0;)
        sizeInTrailer = sizeInTrailer << 8 | size[byte];
    return sizeInTrailer == std::uint32_t(whole.st_size);
}

} // namespace Zyr
