// Watches a path with inotify: each of its directories and links, and the file at its end.

#include "watch/PathWatch.h"

#include "system/SameFile.h"
#include "system/SystemError.h"
#include "system/TrustedPath.h"

#include <QtCore/QByteArrayList>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace Zyr {

namespace {

constexpr quint32 selfMask = IN_MOVE_SELF | IN_DELETE_SELF;
constexpr quint32 contentMask = IN_MODIFY | IN_CLOSE_WRITE;
constexpr quint32 fileMask = selfMask | contentMask | IN_ATTRIB;
constexpr quint32 linkMask = selfMask | IN_ATTRIB;
/// For a directory with an entry that is missing or cannot be watched itself.
constexpr quint32 entryMask = selfMask | IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
/// For its parent: a removed directory gives no event itself while it is some process's working directory.
constexpr quint32 removalMask = selfMask | IN_DELETE;

constexpr int maxWalks = 100; ///< while the path changes during each walk; a burst of saves ends sooner

/// A path to exactly the open inode, even where that is a symbolic link.
QByteArray pathOf(const Descriptor& node)
{
    return "/proc/self/fd/" + QByteArray::number(node.get());
}

/// Whether `name` is still the inode with this status.
bool leadsTo(const Descriptor& directory, const QByteArray& name, const struct stat& status)
{
    struct stat now = {};
    return ::fstatat(directory.get(), name.constData(), &now, AT_SYMLINK_NOFOLLOW) == 0 && isSameFile(now, status);
}

} // namespace

/// One walk along a path. Each node is opened with O_PATH and watched through its descriptor, so that the watch is on
/// exactly that inode. Its name is looked up again afterwards: a move before the watch caused no event.
class PathWatch::PathWalker
{
public:
    PathWalker(int instance, const Masks& wantedByOthers, WatchSet& result)
        : inotify(instance)
        , others(wantedByOthers)
        , watches(result)
    {
    }

    /// Returns 0 or an errno value; EAGAIN: a part of the path has changed meanwhile.
    int walk(const QByteArray& path);

private:
    void push(const QByteArray& path);
    int openRoot();
    int watchInode(const QByteArray& nodePath, quint32 mask, const QByteArray& entry = {});
    int watchEntry(const QByteArray& name);
    int followLink(Descriptor link);

    const int inotify;
    const Masks& others;
    WatchSet& watches;
    Descriptor here;                 ///< the directory reached so far
    std::vector<QByteArray> trail;   ///< the names of the directories down to `here`
    std::vector<QByteArray> pending; ///< names not walked yet, the next one last
    int links = 0;
};

void PathWatch::PathWalker::push(const QByteArray& path)
{
    const auto names = path.split('/');
    for (auto name = names.crbegin(); name != names.crend(); ++name) {
        if (!name->isEmpty() && *name != ".")
            pending.push_back(*name);
    }
}

int PathWatch::PathWalker::openRoot()
{
    here = Descriptor(); // closed first: one descriptor less
    here = Descriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    trail.clear();
    return here ? 0 : errno;
}

int PathWatch::PathWalker::watchInode(const QByteArray& nodePath, quint32 mask, const QByteArray& entry)
{
    const int wd = ::inotify_add_watch(inotify, nodePath.constData(), mask | IN_MASK_ADD);
    if (wd < 0)
        return errno;
    Interest& interest = watches[wd];
    interest.mask |= mask;
    if (!entry.isEmpty())
        interest.names.push_back(entry);
    // IN_MASK_ADD kept bits of earlier walks, which would wake the thread for nothing: set exactly what is wanted.
    const auto other = others.find(wd);
    ::inotify_add_watch(inotify, nodePath.constData(), interest.mask | (other == others.end() ? 0 : other->second));
    return 0;
}

int PathWatch::PathWalker::watchEntry(const QByteArray& name)
{
    struct stat own = {};
    if (::fstat(here.get(), &own) != 0)
        return errno;
    if (const int error = watchInode(pathOf(here), entryMask, name))
        return error;
    if (trail.empty())
        return 0;
    const int error = watchInode(pathOf(here) + "/..", removalMask, trail.back());
    if (error == EACCES)
        return 0; // optional: the parent directory may be unreadable
    return error != 0 || leadsTo(here, "../" + trail.back(), own) ? error : EAGAIN;
}

/// Continues at the link's target. Ends the walk if the link must not be followed: then only a change of a link that is
/// already watched can matter.
int PathWatch::PathWalker::followLink(Descriptor link)
{
    struct stat own = {};
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(link.get(), "", target, sizeof target);
    const bool isFollowed = ::fstat(link.get(), &own) == 0 && isTrustedOwner(own.st_uid); // as by TrustedPath
    if (length <= 0 || !isFollowed || ++links > maxLinks) {
        pending.clear();
        return 0;
    }
    push(QByteArray(target, length));
    return target[0] == '/' ? openRoot() : 0;
}

int PathWatch::PathWalker::walk(const QByteArray& path)
{
    if (const int error = openRoot())
        return error;
    push(path);
    while (!pending.empty()) {
        const QByteArray name = pending.back();
        pending.pop_back();
        Descriptor node(::openat(here.get(), name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat status = {};
        if (!node || ::fstat(node.get(), &status) != 0) {
            if (isShortage(lastError()))
                return errno;
            if (const int error = watchEntry(name))
                return error;
            struct stat appeared = {};
            const int found = ::fstatat(here.get(), name.constData(), &appeared, AT_SYMLINK_NOFOLLOW);
            return found == 0 ? EAGAIN : isShortage(lastError()) ? errno : 0;
        }

        const bool isDirectory = S_ISDIR(status.st_mode);
        const bool isLink = S_ISLNK(status.st_mode);
        const bool isFile = !isDirectory && !isLink;
        int error = watchInode(pathOf(node), isFile ? fileMask : isLink ? linkMask : selfMask);
        if (error == EACCES)
            error = isFile ? watchEntry(name) : 0;
        if (error != 0)
            return error;
        if (!leadsTo(here, name, status))
            return EAGAIN;
        if (isFile)
            return 0;
        if (isLink) {
            error = followLink(std::move(node));
            if (error != 0)
                return error;
            continue;
        }
        here = std::move(node);
        if (name != "..")
            trail.push_back(name);
        else if (!trail.empty())
            trail.pop_back();
    }
    return 0;
}

PathWatch::PathWatch()
    : inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
}

PathWatch::Masks PathWatch::beginWalk(Owner owner)
{
    Masks others;
    for (const auto& [wd, interests] : inodes) {
        for (const auto& [other, interest] : interests) {
            if (other != owner)
                others[wd] |= interest.mask;
        }
    }
    walking = true;
    return others;
}

int PathWatch::follow(const QByteArray& path, const Masks& others, WatchSet& watches) const
{
    int error = EAGAIN;
    for (int walks = 0; error == EAGAIN && walks < maxWalks; ++walks) {
        for (auto& [wd, interest] : watches)
            interest = {}; // the entry stays, so that endWalk() removes the watch
        error = PathWalker(inotify.get(), others, watches).walk(path);
    }
    return error;
}

void PathWatch::endWalk(Owner owner, const WatchSet& watches)
{
    walking = false;
    for (auto& [wd, interests] : inodes)
        interests.erase(owner);
    for (const auto& [wd, interest] : watches) {
        Interests& interests = inodes[wd];
        if (interest.mask != 0)
            interests[owner] = interest;
    }
    removeUnwanted();
}

void PathWatch::forget(Owner owner)
{
    for (auto& [wd, interests] : inodes)
        interests.erase(owner);
    removeUnwanted();
}

void PathWatch::removeUnwanted()
{
    if (walking)
        return;
    std::erase_if(inodes, [this](const auto& inode) {
        const bool unwanted = inode.second.empty();
        if (unwanted)
            ::inotify_rm_watch(inotify.get(), inode.first);
        return unwanted;
    });
}

void PathWatch::handleEvent(int wd, quint32 mask, const char* name, const std::function<void(const Event&)>& handle)
{
    if (mask & IN_Q_OVERFLOW) {
        std::map<Owner, Interest> owners;
        for (const auto& [each, interests] : inodes)
            owners.insert(interests.begin(), interests.end());
        for (const auto& [owner, interest] : owners)
            handle({owner, true, true, false, false});
        return;
    }

    const auto found = inodes.find(wd);
    if (found == inodes.end())
        return;
    constexpr quint32 always = IN_IGNORED | IN_UNMOUNT;
    quint32 wanted = always;
    for (const auto& [owner, interest] : found->second)
        wanted |= interest.mask;
    // If nobody wants this event, the kernel's mask is out of date: a new walk by each owner corrects it.
    const bool unwanted = (mask & wanted) == 0;
    for (const auto& [owner, interest] : found->second) {
        const auto& names = interest.names;
        const quint32 relevant = mask & (interest.mask | always);
        const bool counts = relevant != 0 && (!name || std::find(names.begin(), names.end(), name) != names.end());
        if (unwanted || counts)
            handle({owner, unwanted || (relevant & ~contentMask) != 0, (relevant & ~(contentMask | IN_ATTRIB)) != 0,
                    (relevant & IN_MODIFY) != 0, (relevant & IN_CLOSE_WRITE) != 0});
    }
    if (mask & IN_IGNORED)
        inodes.erase(found);
}

void PathWatch::readEvents(const std::function<void(const Event&)>& handle)
{
    alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    const ssize_t size = ::read(inotify.get(), buffer, sizeof buffer);
    for (ssize_t at = 0; at < size;) {
        inotify_event event;
        std::memcpy(&event, buffer + at, sizeof event);
        at += ssize_t(sizeof event);
        handleEvent(event.wd, event.mask, event.len > 0 ? buffer + at : nullptr, handle);
        at += event.len;
    }
}

} // namespace Zyr
