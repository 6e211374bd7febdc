// Reads a settings file without blocking, without following other users' links, and no more of it than a sane size.

#include "file/FileBytes.h"

#include "system/Descriptor.h"
#include "system/Retry.h"
#include "system/SystemError.h"
#include "system/TrustedPath.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace Zyr {

namespace {

/// Settings are some kilobytes. A larger file is a mistake, and QSettings takes up to 200 times its size of memory.
constexpr qsizetype maxFileSize = 64 * 1024;

qint64 nanoseconds(const timespec& time)
{
    return qint64(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

FileBytes unreadable(const QString& reason, bool shortage = false)
{
    return {FileBytes::State::Unreadable, {}, {}, reason, shortage};
}

FileBytes unreadable(int error)
{
    return unreadable(errorText(error), isShortage({error, std::system_category()}));
}

} // namespace

FileStamp FileStamp::of(const struct stat& status)
{
    return {status.st_dev, status.st_ino, nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

QString errorText(int error)
{
    return QString::fromStdString(std::generic_category().message(error));
}

bool writeAll(int file, const QByteArray& bytes)
{
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t count =
            retried([&] { return ::write(file, bytes.constData() + written, size_t(bytes.size() - written)); });
        if (count < 0)
            return false;
        written += count;
    }
    return true;
}

FileBytes readFile(const QByteArray& path)
{
    TrustedPath realPath;
    if (const std::error_code error = realPath.find(path.constData())) {
        if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
            return {};
        return unreadable(QString::fromStdString(error.message()), isShortage(error));
    }
    // O_NONBLOCK: opening a FIFO must not wait for its writer.
    return readFile(Descriptor(realPath.open(O_RDONLY | O_NONBLOCK | O_NOCTTY)));
}

FileBytes readFile(const Descriptor& file)
{
    if (!file)
        return errno == ENOENT || errno == ENOTDIR ? FileBytes{} : unreadable(errno);
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0)
        return unreadable(errno);
    if (!S_ISREG(status.st_mode))
        return unreadable(u"not a regular file"_s);

    FileBytes result{FileBytes::State::Read, {}, FileStamp::of(status), {}};
    char block[4096];
    for (;;) {
        const ssize_t count = retried([&] { return ::read(file.get(), block, sizeof block); });
        if (count == 0)
            return result;
        if (count < 0)
            return unreadable(errno);
        result.bytes.append(block, count);
        if (result.bytes.size() > maxFileSize)
            return unreadable(u"larger than 64 KiB"_s);
    }
}

} // namespace Zyr
