// Walks a path with inotify: every directory and link on the way is watched, and the file at its end.

#include "watch/PathWatch.h"

#include "system/Shortage.h"
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
/// For a directory whose entry is missing or cannot be watched itself.
constexpr quint32 entryMask = selfMask | IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
/// For the directory above that one: a removed directory tells nothing itself as long as somebody works in it.
constexpr quint32 removalMask = selfMask | IN_DELETE;

constexpr int mostWalks = 100; ///< a burst of saves ends sooner

/// A name for exactly the inode that is open, symbolic links included.
QByteArray placeOf(const Descriptor& node)
{
    return "/proc/self/fd/" + QByteArray::number(node.get());
}

/// Whether `name` is still the inode with this status.
bool leadsTo(const Descriptor& directory, const QByteArray& name, const struct stat& status)
{
    struct stat now = {};
    return ::fstatat(directory.get(), name.constData(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
           now.st_dev == status.st_dev && now.st_ino == status.st_ino;
}

} // namespace

/// One walk along a path. Every step is an open descriptor until it is watched, so that what is watched is what was
/// stepped on, and is looked up once more then: what moved away before it was watched told nothing of it.
class PathWatch::Walk
{
public:
    Walk(int instance, const Masks& wantedByOthers, Way& result)
        : inotify(instance)
        , others(wantedByOthers)
        , way(result)
    {
    }

    /// Returns 0 or an errno value, EAGAIN when something on the way has changed meanwhile.
    int go(const QByteArray& path);

private:
    void push(const QByteArray& path);
    int openRoot();
    int watchInode(const QByteArray& place, quint32 mask, const QByteArray& entry = {});
    int watchEntry(const QByteArray& name);
    int followLink(Descriptor link);

    const int inotify;
    const Masks& others;
    Way& way;
    Descriptor here;               ///< the directory reached so far
    std::vector<QByteArray> trail; ///< the names of the directories down to `here`
    std::vector<QByteArray> ahead; ///< names still to go, the next one last
    int links = 0;
};

void PathWatch::Walk::push(const QByteArray& path)
{
    const auto names = path.split('/');
    for (auto name = names.crbegin(); name != names.crend(); ++name) {
        if (!name->isEmpty() && *name != ".")
            ahead.push_back(*name);
    }
}

int PathWatch::Walk::openRoot()
{
    here = Descriptor(); // one less to hold at a time
    here = Descriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    trail.clear();
    return here ? 0 : errno;
}

int PathWatch::Walk::watchInode(const QByteArray& place, quint32 mask, const QByteArray& entry)
{
    const int wd = ::inotify_add_watch(inotify, place.constData(), mask | IN_MASK_ADD);
    if (wd < 0)
        return errno;
    Interest& interest = way[wd];
    interest.mask |= mask;
    if (!entry.isEmpty())
        interest.names.push_back(entry);
    // What nobody is interested in any more must not wake the thread.
    const auto other = others.find(wd);
    ::inotify_add_watch(inotify, place.constData(), interest.mask | (other == others.end() ? 0 : other->second));
    return 0;
}

int PathWatch::Walk::watchEntry(const QByteArray& name)
{
    struct stat own = {};
    if (::fstat(here.get(), &own) != 0)
        return errno;
    if (const int error = watchInode(placeOf(here), entryMask, name))
        return error;
    if (trail.empty())
        return 0;
    const int error = watchInode(placeOf(here) + "/..", removalMask, trail.back());
    if (error == EACCES)
        return 0; // worth having, but not all directories may be watched
    return error != 0 || leadsTo(here, "../" + trail.back(), own) ? error : EAGAIN;
}

/// Goes on at what a symbolic link leads to, or ends the walk where it leads nowhere until one of the links changes.
int PathWatch::Walk::followLink(Descriptor link)
{
    struct stat own = {};
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(link.get(), "", target, sizeof target);
    const bool isFollowed = ::fstat(link.get(), &own) == 0 && isTrustedOwner(own.st_uid); // by who reads the file
    if (length <= 0 || !isFollowed || ++links > maxLinks) {
        ahead.clear();
        return 0;
    }
    push(QByteArray(target, length));
    return target[0] == '/' ? openRoot() : 0;
}

int PathWatch::Walk::go(const QByteArray& path)
{
    if (const int error = openRoot())
        return error;
    push(path);
    while (!ahead.empty()) {
        const QByteArray name = ahead.back();
        ahead.pop_back();
        Descriptor node(::openat(here.get(), name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat status = {};
        if (!node || ::fstat(node.get(), &status) != 0) {
            if (isShortage({errno, std::system_category()}))
                return errno;
            if (const int error = watchEntry(name))
                return error;
            struct stat appeared = {};
            const int found = ::fstatat(here.get(), name.constData(), &appeared, AT_SYMLINK_NOFOLLOW);
            return found == 0 ? EAGAIN : isShortage({errno, std::system_category()}) ? errno : 0;
        }

        const bool isDirectory = S_ISDIR(status.st_mode);
        const bool isLink = S_ISLNK(status.st_mode);
        const bool isFile = !isDirectory && !isLink;
        int error = watchInode(placeOf(node), isFile ? fileMask : isLink ? linkMask : selfMask);
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

int PathWatch::follow(const QByteArray& path, const Masks& others, Way& way) const
{
    int error = EAGAIN;
    for (int walks = 0; error == EAGAIN && walks < mostWalks; ++walks) {
        for (auto& [wd, interest] : way)
            interest = {}; // the inode stays known, so that endWalk() gives up its watch
        error = Walk(inotify.get(), others, way).go(path);
    }
    return error;
}

void PathWatch::endWalk(Owner owner, const Way& way)
{
    walking = false;
    for (auto& [wd, interests] : inodes)
        interests.erase(owner);
    for (const auto& [wd, interest] : way) {
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
    // An event that nobody wants any more is handed to all: watching again corrects the mask.
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
