// System calls of an open log file: opening, locking, whole-line appends, cutting back.

#include "store/AppendFile.h"

#include "system/FileCalls.h"
#include "system/FileLocks.h"
#include "system/PathCalls.h"
#include "system/TrustedPath.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>

namespace Zyr {

namespace {

constexpr int maxTries = 5; // while others replace the file
constexpr std::size_t maxPerWrite = 256 * 1024;
constexpr std::chrono::seconds lineTime(2); // for a write of that many bytes
constexpr std::chrono::seconds longLineTime(10);
constexpr int always = O_APPEND | O_NOCTTY | O_NONBLOCK;

} // namespace

std::error_code AppendFile::open(const std::string& path, CallWatch& watch)
{
    TrustedPath realPath;
    for (int tries = 0; tries < maxTries; ++tries) {
        if (const std::error_code error = PathCalls::find(realPath, path, watch))
            return error;
        struct stat found = {};
        const bool exists = PathCalls::status(realPath, found, watch);
        // Read access: for the last line's end, and for the shared lock of a writer that only appends. A pipe opened
        // for both would be its own reader.
        const bool regular = !exists || S_ISREG(found.st_mode);
        bool opened = file.open(realPath, always | (regular ? O_RDWR | O_CREAT : O_WRONLY), watch);
        if (!opened && exists && regular && errno == EACCES)
            // O_CREAT, so that the kernel's protected_regular applies here too.
            opened = file.open(realPath, always | O_WRONLY | O_CREAT, watch);
        if (!opened && errno == ELOOP)
            continue; // a link has taken the name since
        if (!opened)
            return lastError();
        if (const std::error_code error = readStatus(watch))
            return error;
        place = isRegular() && !realPath.isKernelLink() ? LogPlace::of(realPath, watch) : nullptr;
        if (place || !isRegular() || realPath.isKernelLink())
            return {};
        const std::error_code error = lastError();
        close(watch);
        return error;
    }
    return std::make_error_code(std::errc::too_many_symbolic_link_levels);
}

std::error_code AppendFile::create(const LogPlace& beside, const std::string& name, CallWatch& watch)
{
    return beside.create(name, Directory::Existing::Fail, file, watch) ? readStatus(watch) : lastError();
}

std::error_code AppendFile::readStatus(CallWatch& watch)
{
    if (FileCalls::status(file.get(), status, watch))
        return {};
    const std::error_code error = lastError();
    close(watch);
    return error;
}

bool AppendFile::isSame(const AppendFile& other) const noexcept
{
    return isOpen() && other.isOpen() && isSameFile(status, other.status);
}

std::error_code AppendFile::findAgain(const std::string& path, CallWatch& watch)
{
    struct stat now = {};
    const std::error_code error = PathCalls::status(path, now, watch);
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
    if (error) { // unknown what the path leads to: the open file is written on
        FileCalls::status(file.get(), status, watch);
        return error;
    }
    if (!isSameFile(now, status))
        return PathError::NotThisFile;
    status = now;
    return {};
}

bool AppendFile::lock(CallWatch& watch) noexcept
{
    return FileLocks::own(file.get(), watch);
}

bool AppendFile::holdOffCompression(CallWatch& watch) noexcept
{
    return FileLocks::share(file.get(), watch);
}

void AppendFile::allowCompression(CallWatch& watch) noexcept
{
    FileLocks::release(file.get(), watch);
}

AppendFile::Appended AppendFile::append(const LineBatch& batch, std::size_t from, std::size_t to,
                                        CallWatch& watch) noexcept
{
    Appended result;
    std::array<iovec, LineBatch::maxRuns> pieces;
    while (from < to) {
        // Only whole lines, even if one is longer: another process may write in between.
        const std::size_t fitting = batch.bytesOf(batch.linesWithin(from + maxPerWrite));
        const std::size_t end = fitting > from ? fitting : batch.bytesOf(batch.linesWithin(from) + 1);
        const std::size_t count = batch.pieces(from, std::min(to, end), pieces);
        const auto limit = end - from > maxPerWrite ? longLineTime : lineTime;
        const ssize_t written = write({pieces.data(), count}, limit, watch);
        if (written <= 0) {
            result.error = written < 0 ? lastError() : std::make_error_code(std::errc::io_error);
            return result;
        }
        from += std::size_t(written);
        result.bytes += std::size_t(written);
    }
    return result;
}

ssize_t AppendFile::write(std::span<iovec> pieces, std::chrono::seconds limit, CallWatch& watch) const noexcept
{
    return S_ISSOCK(status.st_mode) ? FileCalls::send(file.get(), pieces, limit, watch)
                                    : FileCalls::write(file.get(), pieces, limit, watch);
}

std::error_code AppendFile::endLine(CallWatch& watch) noexcept
{
    return FileCalls::write(file.get(), "\n", 1, watch) == 1 ? std::error_code() : lastError();
}

bool AppendFile::endsInLine(CallWatch& watch) const noexcept
{
    char last = '\n';
    if (isRegular() && status.st_size > 0)
        FileCalls::readAt(file.get(), status.st_size - 1, &last, 1, watch);
    return last == '\n' || isBeingWritten(watch);
}

/// Whether somebody else is appending, or has since the last look at the file.
bool AppendFile::isBeingWritten(CallWatch& watch) const noexcept
{
    struct stat now = {};
    return FileLocks::isHeld(file.get(), watch) ||
           (FileCalls::status(file.get(), now, watch) && now.st_size != status.st_size);
}

bool AppendFile::cutBack(std::size_t bytes, CallWatch& watch) noexcept
{
    // Other writers hold a shared lock while they append.
    if (!FileLocks::exclude(file.get(), watch))
        return false;
    const off_t end = FileCalls::position(file.get());
    const bool mine = end >= off_t(bytes) && FileCalls::status(file.get(), status, watch) && status.st_size == end;
    const bool cut = mine && FileCalls::truncate(file.get(), end - off_t(bytes), watch);
    FileLocks::release(file.get(), watch);
    return cut;
}

std::error_code AppendFile::synchronize(CallWatch& watch) noexcept
{
    return FileCalls::synchronize(file.get(), watch) ? std::error_code() : lastError();
}

} // namespace Zyr
