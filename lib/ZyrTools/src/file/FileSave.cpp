// Saves a file by exchanging it for a temporary one, so that nobody else's save is lost.

#include "file/FileSave.h"

#include "system/Descriptor.h"
#include "system/Retry.h"
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
bool isOpenForWriting(const Descriptor& file)
{
    // Whoever opens the file during the lease has us sent a signal: one that is ignored unless handled.
    if (::fcntl(file.get(), F_SETSIG, SIGURG) != 0)
        return false;
    if (retried([&] { return ::fcntl(file.get(), F_SETLEASE, F_RDLCK); }) != 0)
        return errno == EAGAIN;
    ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
    return false;
}

/// A directory and the calls on names in it.
class Folder
{
public:
    explicit Folder(const TrustedPath& place)
        : directory(place.directory())
    {
    }

    Descriptor open(const QByteArray& name, int flags, mode_t mode = 0) const
    {
        const int all = flags | O_CLOEXEC | O_NOFOLLOW;
        return Descriptor(retried([&] { return ::openat(directory, name.constData(), all, mode); }));
    }

    Found find(const QByteArray& name) const
    {
        Found found;
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
        return retried([&] { return ::fstatat(directory, name.constData(), &found, AT_SYMLINK_NOFOLLOW); });
    }
    bool mayAccess(const QByteArray& name, int how) const
    {
        return ::faccessat(directory, name.constData(), how, AT_EACCESS) == 0;
    }
    void remove(const QByteArray& name) const
    {
        retried([&] { return ::unlinkat(directory, name.constData(), 0); });
    }
    bool link(const QByteArray& name, const QByteArray& other) const
    {
        return retried([&] { return ::linkat(directory, name.constData(), directory, other.constData(), 0); }) == 0;
    }
    bool rename(const QByteArray& from, const QByteArray& to, unsigned flags = 0) const
    {
        return retried([&] { return ::renameat2(directory, from.constData(), directory, to.constData(), flags); }) == 0;
    }

private:
    const int directory;
};

/// Files that carry an access control list lose it in a copy unless it is carried over.
bool copyAccessList(const Descriptor& from, int to)
{
    constexpr auto name = "system.posix_acl_access";
    char list[4096];
    const ssize_t size = ::fgetxattr(from.get(), name, list, sizeof list);
    return size < 0 ? errno == ENODATA || errno == ENOTSUP : ::fsetxattr(to, name, list, size_t(size), 0) == 0;
}

/// A hidden file in a folder, there until it is renamed or removed.
class Neighbour
{
public:
    Neighbour(const Folder& itsFolder, mode_t mode)
        : folder(itsFolder)
    {
        static std::atomic<unsigned> last = 0;
        do {
            name = ".settings-" + QByteArray::number(::getpid()) + '-' + QByteArray::number(++last);
            file = folder.open(name, O_WRONLY | O_CREAT | O_EXCL, mode);
        } while (!file && errno == EEXIST);
        isMade = bool(file);
    }
    ~Neighbour()
    {
        if (isMade) // else the name may be another's
            folder.remove(name);
    }
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

    QByteArray name;
    Descriptor file;

private:
    const Folder& folder;
    bool isMade = false;
};

bool isUnsupported(int error)
{
    return error == EINVAL || error == ENOSYS;
}

/// Puts `mine` in the place of `name`, where `known` should be. Exchanging brings out what really was there; when that
/// is not what was expected, it is somebody's save and newer than what has just been put in its place, so it goes back,
/// and the same question is asked of what comes out then. What is expected and comes out is out of date and may go.
bool replace(const Folder& folder, const QByteArray& name, Found known, const QByteArray& mine)
{
    Found inserted = folder.find(mine);
    if (!folder.rename(mine, name, RENAME_EXCHANGE))
        return false; // a file system without exchange gives no way to be sure of not going over a save
    for (bool mineStands = true;; mineStands = false) {
        const Found out = folder.find(mine);
        if (out.isStill(known))
            return mineStands;
        if (!folder.rename(mine, name, RENAME_EXCHANGE)) {
            // Deleted since, so what was saved before that goes too; a save that only could not be exchanged is kept.
            if (errno != ENOENT)
                folder.rename(mine, name);
            return false;
        }
        known = std::exchange(inserted, out);
    }
}

bool saveExisting(const Folder& folder, const QByteArray& name, const FileBytes& loaded, Neighbour& neighbour)
{
    const Found known = folder.find(name);
    if (!known.bytes || *known.bytes != loaded.bytes)
        return false;
    const int file = neighbour.file.get();
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return false;
    const bool sameOwner = status.st_uid == known.status.st_uid && status.st_gid == known.status.st_gid;
    if (!sameOwner && ::fchown(file, known.status.st_uid, known.status.st_gid) != 0)
        return false;
    if (::fchmod(file, known.status.st_mode & 07777) != 0 ||
        !copyAccessList(folder.open(name, O_RDONLY | O_NONBLOCK), file))
        return false;
    neighbour.file = Descriptor(); // an open one would count as a writer
    return replace(folder, name, known, neighbour.name);
}

bool saveMissing(const Folder& folder, const QByteArray& name, const Neighbour& neighbour)
{
    if (folder.rename(neighbour.name, name, RENAME_NOREPLACE))
        return true;
    return isUnsupported(errno) && folder.link(neighbour.name, name);
}

} // namespace

bool maySave(const TrustedPath& place)
{
    const Folder folder(place);
    if (!folder.mayAccess(".", W_OK | X_OK))
        return false;
    struct stat status = {};
    if (folder.status(place.name(), status) != 0)
        return errno == ENOENT;
    const bool ownerCanBeKept = status.st_uid == ::geteuid() || ::geteuid() == 0;
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && ownerCanBeKept && (status.st_mode & writeBits) != 0 &&
           folder.mayAccess(place.name(), W_OK);
}

std::optional<FileBytes> saveFile(const TrustedPath& place, const FileBytes& loaded, const QByteArray& bytes,
                                  QString& problem)
{
    const bool exists = loaded.state == FileBytes::State::Read;
    const Folder folder(place);
    const QByteArray name = place.name();
    Neighbour neighbour(folder, exists ? 0600 : 0666);
    const int file = neighbour.file.get();
    if (!neighbour.file || !writeAll(file, bytes) || retried([&] { return ::fdatasync(file); }) != 0) {
        problem = errorText(errno);
        return std::nullopt;
    }
    struct stat mine = {};
    const bool known = ::fstat(file, &mine) == 0;
    if (!(exists ? saveExisting(folder, name, loaded, neighbour) : saveMissing(folder, name, neighbour)))
        return std::nullopt;

    // The time stamps are those after the renaming; a file that somebody put there already has none that we know.
    FileBytes written{FileBytes::State::Read, bytes, {}, {}};
    struct stat now = {};
    if (known && folder.status(name, now) == 0 && now.st_dev == mine.st_dev && now.st_ino == mine.st_ino)
        written.stamp = FileStamp::of(now);
    return written;
}

} // namespace Zyr
