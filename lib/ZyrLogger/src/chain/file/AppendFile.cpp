#include "chain/file/AppendFile.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Zyr {

namespace {

constexpr std::size_t mostPerWrite = 256 * 1024;
constexpr std::chrono::seconds lineTime(2); // for a write of that many bytes
constexpr std::chrono::seconds longLineTime(10);
constexpr int always = O_APPEND | O_NOCTTY | O_NONBLOCK;

bool setLock(int file, short kind, CallWatch& watch) noexcept
{
    struct flock range = {};
    range.l_type = kind;
    range.l_whence = SEEK_SET;
    return watch([&] { return ::fcntl(file, F_OFD_SETLK, &range); }) == 0;
}

} // namespace

std::error_code AppendFile::open(const std::string& path, CallWatch& watch)
{
    struct stat found = {};
    const bool exists = watch([&] { return ::stat(path.c_str(), &found); }) == 0;
    // The last line is looked at, and who only appends takes a lock for reading. A pipe opened for both would have
    // itself as its reader.
    const bool regular = !exists || S_ISREG(found.st_mode);
    bool opened = file.open(path, always | (regular ? O_RDWR | O_CREAT : O_WRONLY), watch);
    if (!opened && regular && errno == EACCES)
        opened = file.open(path, always | O_WRONLY, watch);
    return opened ? look(watch) : lastError();
}

std::error_code AppendFile::create(const std::string& path, CallWatch& watch)
{
    return file.open(path, always | O_RDWR | O_CREAT | O_EXCL, watch) ? look(watch) : lastError();
}

std::error_code AppendFile::look(CallWatch& watch)
{
    if (watch([&] { return ::fstat(file.get(), &status); }) == 0)
        return {};
    const std::error_code error = lastError();
    close(watch);
    return error;
}

bool AppendFile::isSame(const AppendFile& other) const noexcept
{
    return isOpen() && other.isOpen() && status.st_dev == other.status.st_dev && status.st_ino == other.status.st_ino;
}

bool AppendFile::isStillAt(const std::string& path, CallWatch& watch)
{
    struct stat found = {};
    if (watch([&] { return ::stat(path.c_str(), &found); }) != 0)
        return errno != ENOENT && errno != ENOTDIR;
    if (found.st_dev != status.st_dev || found.st_ino != status.st_ino)
        return false;
    status = found;
    return true;
}

bool AppendFile::lock(CallWatch& watch) noexcept
{
    return watch([&] { return ::flock(file.get(), LOCK_EX | LOCK_NB); }) == 0 || errno != EWOULDBLOCK;
}

bool AppendFile::holdOffCompression(CallWatch& watch) noexcept
{
    return setLock(file.get(), F_RDLCK, watch) || (errno != EAGAIN && errno != EACCES);
}

void AppendFile::allowCompression(CallWatch& watch) noexcept
{
    setLock(file.get(), F_UNLCK, watch);
}

AppendFile::Appended AppendFile::append(const LineBatch& batch, std::size_t from, std::size_t to, CallWatch& watch)
{
    Appended result;
    std::array<iovec, LineBatch::mostRuns> pieces;
    while (from < to) {
        // Only whole lines, also where one is longer: another process may write in between.
        const std::size_t fitting = batch.bytesOf(batch.linesWithin(from + mostPerWrite));
        const std::size_t end = fitting > from ? fitting : batch.bytesOf(batch.linesWithin(from) + 1);
        const std::size_t count = batch.pieces(from, std::min(to, end), pieces);
        const auto limit = end - from > mostPerWrite ? longLineTime : lineTime;
        const ssize_t written = watch([&] { return ::writev(file.get(), pieces.data(), int(count)); }, limit);
        if (written <= 0) {
            if (written < 0 && errno == EINTR)
                continue;
            result.error = written < 0 ? lastError() : std::make_error_code(std::errc::io_error);
            return result;
        }
        from += std::size_t(written);
        result.bytes += std::size_t(written);
    }
    return result;
}

std::error_code AppendFile::endLine(CallWatch& watch)
{
    return watch([&] { return ::write(file.get(), "\n", 1); }) == 1 ? std::error_code() : lastError();
}

bool AppendFile::endsInLine(CallWatch& watch) const
{
    char last = '\n';
    if (isRegular() && status.st_size > 0)
        watch([&] { return ::pread(file.get(), &last, 1, status.st_size - 1); });
    return last == '\n' || isBeingWritten(watch);
}

/// Whether somebody else was in the middle of an append when the file was last looked at, or is now.
bool AppendFile::isBeingWritten(CallWatch& watch) const
{
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    struct stat now = {};
    return (watch([&] { return ::fcntl(file.get(), F_OFD_GETLK, &range); }) == 0 && range.l_type != F_UNLCK) ||
           (watch([&] { return ::fstat(file.get(), &now); }) == 0 && now.st_size != status.st_size);
}

bool AppendFile::cutBack(std::size_t bytes, CallWatch& watch) noexcept
{
    // Whoever appends as another writer holds a lock for reading meanwhile.
    if (!setLock(file.get(), F_WRLCK, watch) && (errno == EAGAIN || errno == EACCES))
        return false;
    const off_t end = ::lseek(file.get(), 0, SEEK_CUR); // behind what this descriptor wrote last
    const bool mine =
        end >= off_t(bytes) && watch([&] { return ::fstat(file.get(), &status); }) == 0 && status.st_size == end;
    const bool cut = mine && watch([&] { return ::ftruncate(file.get(), end - off_t(bytes)); }) == 0;
    setLock(file.get(), F_UNLCK, watch);
    return cut;
}

std::error_code AppendFile::synchronize(CallWatch& watch) noexcept
{
    using namespace std::chrono_literals;
    return watch([&] { return ::fdatasync(file.get()); }, 10s) == 0 ? std::error_code() : lastError();
}

} // namespace Zyr
