#include "store/AppendFile.h"

#include "system/Shortage.h"
#include "system/TrustedPath.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Zyr {

namespace {

constexpr int maxTries = 5; // to open what others exchange meanwhile
constexpr std::size_t mostPerWrite = 256 * 1024;
constexpr std::chrono::seconds lineTime(2); // for a write of that many bytes
constexpr std::chrono::seconds longLineTime(10);
constexpr int always = O_APPEND | O_NOCTTY | O_NONBLOCK;

/// The descriptor whose entry in /proc the path leads to, where it is one of this process.
bool duplicateOwn(const TrustedPath& entry, TrackedFile& file, CallWatch& watch)
{
    const int error = errno;
    struct stat found = {};
    struct stat own = {};
    const char* const name = entry.name();
    int number = -1;
    const bool isNumber = std::from_chars(name, name + std::strlen(name), number).ec == std::errc();
    if (isNumber && ::fstat(entry.directory(), &found) == 0 && ::stat("/proc/self/fd", &own) == 0 &&
        found.st_dev == own.st_dev && found.st_ino == own.st_ino)
        return file.duplicate(number, watch);
    errno = error;
    return false;
}

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
    TrustedPath where;
    for (int tries = 0; tries < maxTries; ++tries) {
        if (const std::error_code error = watch([&] { return where.find(path.c_str()); }))
            return error;
        struct stat found = {};
        const bool exists = watch([&] { return where.status(found); }) == 0;
        // The last line is looked at, and who only appends takes a lock for reading. A pipe opened for both would have
        // itself as its reader.
        const bool regular = !exists || S_ISREG(found.st_mode);
        const auto openAs = [&](int flags) {
            const int follow = where.isKernelLink() ? 0 : O_NOFOLLOW;
            return file.open(where.directory(), where.name(), always | follow | flags, watch);
        };
        bool opened = openAs(regular ? O_RDWR | O_CREAT : O_WRONLY);
        if (!opened && exists && regular && errno == EACCES)
            opened = openAs(O_WRONLY | O_CREAT); // so that the kernel's protected_regular holds for this one, too
        if (!opened && where.isKernelLink() && errno == ENXIO) // a socket
            opened = duplicateOwn(where, file, watch);
        if (!opened && errno == ELOOP)
            continue; // a link has come there since
        if (!opened)
            return lastError();
        if (const std::error_code error = look(watch))
            return error;
        place = isRegular() && !where.isKernelLink() ? LogPlace::of(where, watch) : nullptr;
        if (place || !isRegular() || where.isKernelLink())
            return {};
        const std::error_code error = lastError();
        close(watch);
        return error;
    }
    return std::make_error_code(std::errc::too_many_symbolic_link_levels);
}

std::error_code AppendFile::create(const LogPlace& beside, const std::string& name, CallWatch& watch)
{
    constexpr int flags = always | O_RDWR | O_CREAT | O_EXCL;
    return beside.open(name, flags, file, watch, S_IRUSR | S_IWUSR) ? look(watch) : lastError();
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

std::error_code AppendFile::findAgain(const std::string& path, CallWatch& watch)
{
    TrustedPath where;
    struct stat now = {};
    std::error_code error = watch([&] { return where.find(path.c_str()); });
    const bool isShort = isShortage(error);
    if (isShort && watch([&] { return ::stat(path.c_str(), &now); }) == 0) // which links cannot harm: it only compares
        error = {};
    else if (isShort)
        error = lastError();
    else if (!error && watch([&] { return where.status(now); }) != 0)
        error = lastError();
    return compare(error, now, watch);
}

std::error_code AppendFile::findAgain(const LogPlace& beside, const std::string& name, CallWatch& watch)
{
    struct stat now = {};
    return compare(beside.status(name, now, watch) ? std::error_code() : lastError(), now, watch);
}

std::error_code AppendFile::compare(const std::error_code& error, const struct stat& now, CallWatch& watch) noexcept
{
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        return PathError::NotThisFile;
    if (error) { // the file goes on, whatever its path leads to
        watch([&] { return ::fstat(file.get(), &status); });
        return error;
    }
    if (now.st_dev != status.st_dev || now.st_ino != status.st_ino)
        return PathError::NotThisFile;
    status = now;
    return {};
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
        const ssize_t written = watch([&] { return write(pieces.data(), count); }, limit);
        if (written <= 0) {
            result.error = written < 0 ? lastError() : std::make_error_code(std::errc::io_error);
            return result;
        }
        from += std::size_t(written);
        result.bytes += std::size_t(written);
    }
    return result;
}

/// The descriptor of a socket is the application's too, so it is not made one that never blocks.
ssize_t AppendFile::write(iovec* pieces, std::size_t count) const noexcept
{
    if (!S_ISSOCK(status.st_mode))
        return ::writev(file.get(), pieces, int(count));
    msghdr message = {};
    message.msg_iov = pieces;
    message.msg_iovlen = count;
    return ::sendmsg(file.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
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
