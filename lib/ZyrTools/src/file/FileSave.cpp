// Saves a file by exchanging it for a temporary one, so that nobody else's save is lost.

#include "file/FileSave.h"

#include "system/Descriptor.h"
#include "system/Retry.h"
#include "system/SameFile.h"
#include "system/TrustedPath.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/xattr.h>

using namespace Qt::StringLiterals;

namespace Zyr {

namespace {

constexpr mode_t writeBits = S_IWUSR | S_IWGRP | S_IWOTH;

/// A file found under a name. No `bytes` if it could not be read or is open for writing elsewhere.
struct FoundFile
{
    struct stat status = {};
    std::optional<QByteArray> bytes;

    /// Not replaced since `earlier`, nor written if the earlier content is known.
    bool isStill(const FoundFile& earlier) const
    {
        return isSameFile(status, earlier.status) && status.st_mode == earlier.status.st_mode &&
               status.st_uid == earlier.status.st_uid && status.st_gid == earlier.status.st_gid &&
               (!earlier.bytes || bytes == earlier.bytes);
    }
};

/// The kernel refuses a read lease while any process has the file open for writing.
bool isOpenForWriting(const Descriptor& file)
{
    // An open() during the lease signals the holder. SIGURG is ignored by default; SIGIO would end the program.
    if (::fcntl(file.get(), F_SETSIG, SIGURG) != 0)
        return false;
    if (retried([&] { return ::fcntl(file.get(), F_SETLEASE, F_RDLCK); }) != 0)
        return errno == EAGAIN;
    ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
    return false;
}

/// A directory and the calls on names in it.
class Directory
{
public:
    explicit Directory(const TrustedPath& path)
        : fd(path.directory())
    {
    }

    Descriptor open(const QByteArray& name, int flags, mode_t mode = 0) const
    {
        const int all = flags | O_CLOEXEC | O_NOFOLLOW;
        return Descriptor(retried([&] { return ::openat(fd, name.constData(), all, mode); }));
    }

    FoundFile find(const QByteArray& name) const
    {
        FoundFile found;
        if (status(name, found.status) != 0 || !S_ISREG(found.status.st_mode))
            return found;
        const Descriptor file = open(name, O_RDONLY | O_NONBLOCK);
        if (!file || isOpenForWriting(file))
            return found;
        const FileBytes content = readFile(file);
        if (content.state == FileBytes::State::Read)
            found.bytes = content.bytes;
        return found;
    }

    int status(const QByteArray& name, struct stat& found) const
    {
        return retried([&] { return ::fstatat(fd, name.constData(), &found, AT_SYMLINK_NOFOLLOW); });
    }
    bool mayAccess(const QByteArray& name, int mode) const
    {
        return ::faccessat(fd, name.constData(), mode, AT_EACCESS) == 0;
    }
    void remove(const QByteArray& name) const
    {
        retried([&] { return ::unlinkat(fd, name.constData(), 0); });
    }
    bool link(const QByteArray& name, const QByteArray& other) const
    {
        return retried([&] { return ::linkat(fd, name.constData(), fd, other.constData(), 0); }) == 0;
    }
    bool rename(const QByteArray& from, const QByteArray& to, unsigned flags = 0) const
    {
        return retried([&] { return ::renameat2(fd, from.constData(), fd, to.constData(), flags); }) == 0;
    }

private:
    const int fd;
};

/// Without this, the new file would not have the access control list of the one that it replaces.
bool copyAccessList(const Descriptor& from, int to)
{
    constexpr auto name = "system.posix_acl_access";
    char list[4096];
    const ssize_t size = ::fgetxattr(from.get(), name, list, sizeof list);
    return size < 0 ? errno == ENODATA || errno == ENOTSUP : ::fsetxattr(to, name, list, size_t(size), 0) == 0;
}

/// A hidden file in a directory. The destructor removes it under its name, which after an exchange is the old file's.
class TemporaryFile
{
public:
    TemporaryFile(const Directory& parent, mode_t mode)
        : directory(parent)
    {
        static std::atomic<unsigned> last = 0;
        do {
            name = ".settings-" + QByteArray::number(::getpid()) + '-' + QByteArray::number(++last);
            file = directory.open(name, O_WRONLY | O_CREAT | O_EXCL, mode);
        } while (!file && errno == EEXIST);
        isCreated = bool(file);
    }
    ~TemporaryFile()
    {
        if (isCreated) // otherwise the name may be another process's
            directory.remove(name);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    QByteArray name;
    Descriptor file;

private:
    const Directory& directory;
    bool isCreated = false;
};

bool isUnsupported(int error)
{
    return error == EINVAL || error == ENOSYS;
}

/// Exchanges `mine` with `name`, which should still be `known`. After the exchange, `mine` is the former file. If that
/// is not `known`, another process has saved it since: the two are exchanged back, and the file that comes out is
/// checked against the one put in before, and so on. Returns whether `name` is ours in the end; the file left under
/// `mine` is out of date and may be removed.
bool replace(const Directory& directory, const QByteArray& name, FoundFile known, const QByteArray& mine)
{
    FoundFile inserted = directory.find(mine);
    if (!directory.rename(mine, name, RENAME_EXCHANGE))
        return false; // without an exchange, a save of another process could be overwritten unseen
    for (bool isOurs = true;; isOurs = false) {
        const FoundFile out = directory.find(mine);
        if (out.isStill(known))
            return isOurs;
        if (!directory.rename(mine, name, RENAME_EXCHANGE)) {
            // ENOENT: the name was deleted after the save in `mine`, which goes too. Otherwise that is put back.
            if (errno != ENOENT)
                directory.rename(mine, name);
            return false;
        }
        known = std::exchange(inserted, out);
    }
}

bool saveExisting(const Directory& directory, const QByteArray& name, const FileBytes& loaded, TemporaryFile& temporary)
{
    const FoundFile known = directory.find(name);
    if (!known.bytes || *known.bytes != loaded.bytes)
        return false;
    const int file = temporary.file.get();
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return false;
    const bool sameOwner = status.st_uid == known.status.st_uid && status.st_gid == known.status.st_gid;
    if (!sameOwner && ::fchown(file, known.status.st_uid, known.status.st_gid) != 0)
        return false;
    if (::fchmod(file, known.status.st_mode & 07777) != 0 ||
        !copyAccessList(directory.open(name, O_RDONLY | O_NONBLOCK), file))
        return false;
    temporary.file = Descriptor(); // while it is open for writing, isOpenForWriting() would find it
    return replace(directory, name, known, temporary.name);
}

bool saveMissing(const Directory& directory, const QByteArray& name, const TemporaryFile& temporary)
{
    if (directory.rename(temporary.name, name, RENAME_NOREPLACE))
        return true;
    return isUnsupported(errno) && directory.link(temporary.name, name);
}

} // namespace

bool maySave(const TrustedPath& path)
{
    const Directory directory(path);
    if (!directory.mayAccess(".", W_OK | X_OK))
        return false;
    struct stat status = {};
    if (directory.status(path.name(), status) != 0)
        return errno == ENOENT;
    const bool ownerCanBeKept = status.st_uid == ::geteuid() || ::geteuid() == 0;
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && ownerCanBeKept && (status.st_mode & writeBits) != 0 &&
           directory.mayAccess(path.name(), W_OK);
}

std::optional<FileBytes> saveFile(const TrustedPath& path, const FileBytes& loaded, const QByteArray& bytes,
                                  QString& problem)
{
    const bool exists = loaded.state == FileBytes::State::Read;
    const Directory directory(path);
    const QByteArray name = path.name();
    TemporaryFile temporary(directory, exists ? 0600 : 0666);
    const int file = temporary.file.get();
    if (!temporary.file || !writeAll(file, bytes) || retried([&] { return ::fdatasync(file); }) != 0) {
        problem = errorText(errno);
        return std::nullopt;
    }
    struct stat mine = {};
    const bool known = ::fstat(file, &mine) == 0;
    if (!(exists ? saveExisting(directory, name, loaded, temporary) : saveMissing(directory, name, temporary)))
        return std::nullopt;

    // Renaming changes ctime, so the stamp is taken now; none if another process has replaced the file already.
    FileBytes written{FileBytes::State::Read, bytes, {}, {}};
    struct stat now = {};
    if (known && directory.status(name, now) == 0 && isSameFile(now, mine))
        written.stamp = FileStamp::of(now);
    return written;
}

} // namespace Zyr
