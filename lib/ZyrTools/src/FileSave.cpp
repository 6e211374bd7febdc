#include "FileSave.h"

#include "Descriptor.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <tuple>
#include <utility>

using namespace Qt::StringLiterals;

namespace Zyr {

namespace {

constexpr int longestLinkChain = 40;
constexpr mode_t writeBits = S_IWUSR | S_IWGRP | S_IWOTH;

/// A file found under a name. Without content it could not be read, or somebody has it open for writing.
struct Found
{
    struct stat status = {};
    std::optional<QByteArray> bytes;

    /// Nobody wrote or replaced it since `earlier`, as far as that was known.
    bool isStill(const Found& earlier) const
    {
        return status.st_dev == earlier.status.st_dev && status.st_ino == earlier.status.st_ino &&
               status.st_mode == earlier.status.st_mode && status.st_uid == earlier.status.st_uid &&
               status.st_gid == earlier.status.st_gid && (!earlier.bytes || bytes == earlier.bytes);
    }
};

/// A lease for reading is refused while somebody has the file open for writing.
bool isOpenForWriting(const QByteArray& path)
{
    const Descriptor file(::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    // Whoever opens the file during the lease has us sent a signal: one that is ignored unless handled.
    if (!file || ::fcntl(file.get(), F_SETSIG, SIGURG) != 0)
        return false;
    if (::fcntl(file.get(), F_SETLEASE, F_RDLCK) != 0)
        return errno == EAGAIN;
    ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
    return false;
}

Found find(const QByteArray& path)
{
    Found found;
    if (::lstat(path.constData(), &found.status) != 0 || !S_ISREG(found.status.st_mode))
        return found;
    if (isOpenForWriting(path))
        return found;
    const FileBytes content = readFile(path);
    if (content.state == FileBytes::State::Read)
        found.bytes = content.bytes;
    return found;
}

/// Files that carry an access control list lose it in a copy unless it is carried over.
bool copyAccessList(const QByteArray& from, int to)
{
    constexpr auto name = "system.posix_acl_access";
    char list[4096];
    const ssize_t size = ::getxattr(from.constData(), name, list, sizeof list);
    return size < 0 ? errno == ENODATA || errno == ENOTSUP : ::fsetxattr(to, name, list, size_t(size), 0) == 0;
}

/// A hidden file beside another one, there until it is renamed or removed.
class Neighbour
{
public:
    Neighbour(const QByteArray& directory, mode_t mode)
    {
        static std::atomic<unsigned> last = 0;
        do {
            name = directory + "/.settings-" + QByteArray::number(::getpid()) + '-' + QByteArray::number(++last);
            file = Descriptor(::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
        } while (!file && errno == EEXIST);
    }
    ~Neighbour() { ::unlink(name.constData()); }
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

    QByteArray name;
    Descriptor file;
};

bool isUnsupported(int error)
{
    return error == EINVAL || error == ENOSYS;
}

bool renameWith(const QByteArray& from, const QByteArray& to, unsigned flags)
{
    return ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), flags) == 0;
}

/// Puts `mine` at `path`, where `known` should be. Exchanging brings out what really was there; when that is not what
/// was expected, it is somebody's save and newer than what has just been put in its place, so it goes back, and the
/// same question is asked of what comes out then. What is expected and comes out is out of date and may go.
bool replace(const QByteArray& path, Found known, const QByteArray& neighbour)
{
    Found inserted = find(neighbour);
    if (!renameWith(neighbour, path, RENAME_EXCHANGE))
        return false; // a file system without exchange gives no way to be sure of not going over a save
    for (bool mineStands = true;; mineStands = false) {
        const Found out = find(neighbour);
        if (out.isStill(known))
            return mineStands;
        if (!renameWith(neighbour, path, RENAME_EXCHANGE)) {
            // Deleted since, so what was saved before that goes too; a save that only could not be exchanged is kept.
            if (errno != ENOENT)
                std::ignore = ::rename(neighbour.constData(), path.constData());
            return false;
        }
        known = std::exchange(inserted, out);
    }
}

bool saveExisting(const QByteArray& path, const FileBytes& loaded, Neighbour& neighbour)
{
    const Found known = find(path);
    if (!known.bytes || *known.bytes != loaded.bytes)
        return false;
    const int file = neighbour.file.get();
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return false;
    const bool sameOwner = status.st_uid == known.status.st_uid && status.st_gid == known.status.st_gid;
    if (!sameOwner && ::fchown(file, known.status.st_uid, known.status.st_gid) != 0)
        return false;
    if (::fchmod(file, known.status.st_mode & 07777) != 0 || !copyAccessList(path, file))
        return false;
    neighbour.file = Descriptor(); // an open one would count as a writer
    return replace(path, known, neighbour.name);
}

bool saveMissing(const QByteArray& path, Neighbour& neighbour)
{
    if (renameWith(neighbour.name, path, RENAME_NOREPLACE))
        return true;
    return isUnsupported(errno) && ::link(neighbour.name.constData(), path.constData()) == 0;
}

} // namespace

QByteArray directoryOf(const QByteArray& path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash > 0 ? path.first(slash) : QByteArray("/");
}

QByteArray followLinks(const QByteArray& path)
{
    QByteArray result = path;
    for (int links = 0; links < longestLinkChain; ++links) {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(result.constData(), target, sizeof target);
        if (length <= 0)
            break;
        const QByteArray next(target, length);
        result = next.startsWith('/') ? next : directoryOf(result) + '/' + next;
    }
    return result;
}

bool maySave(const QByteArray& path)
{
    if (::faccessat(AT_FDCWD, directoryOf(path).constData(), W_OK | X_OK, AT_EACCESS) != 0)
        return false;
    struct stat status = {};
    if (::lstat(path.constData(), &status) != 0)
        return errno == ENOENT;
    const bool ownerCanBeKept = status.st_uid == ::geteuid() || ::geteuid() == 0;
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && ownerCanBeKept && (status.st_mode & writeBits) != 0 &&
           ::faccessat(AT_FDCWD, path.constData(), W_OK, AT_EACCESS) == 0;
}

std::optional<FileBytes> saveFile(const QByteArray& path, const FileBytes& loaded, const QByteArray& bytes,
                                  QString& problem)
{
    const bool exists = loaded.state == FileBytes::State::Read;
    Neighbour neighbour(directoryOf(path), exists ? 0600 : 0666);
    if (!neighbour.file || !writeAll(neighbour.file.get(), bytes) || ::fdatasync(neighbour.file.get()) != 0) {
        problem = errorText(errno);
        return std::nullopt;
    }
    struct stat mine = {};
    const bool known = ::fstat(neighbour.file.get(), &mine) == 0;
    if (!(exists ? saveExisting(path, loaded, neighbour) : saveMissing(path, neighbour)))
        return std::nullopt;

    // The time stamps are those after the renaming; a file that somebody put there already has none that we know.
    FileBytes written{FileBytes::State::Read, bytes, {}, {}};
    struct stat now = {};
    if (known && ::stat(path.constData(), &now) == 0 && now.st_dev == mine.st_dev && now.st_ino == mine.st_ino)
        written.stamp = FileStamp::of(now);
    return written;
}

} // namespace Zyr
