#include "PathWatch.h"

#include <QtCore/QByteArrayList>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace Zyr {

namespace {

constexpr quint32 selfMask = IN_MOVE_SELF | IN_DELETE_SELF;
constexpr quint32 contentMask = IN_MODIFY | IN_CLOSE_WRITE;
constexpr quint32 fileMask = selfMask | contentMask | IN_ATTRIB;
constexpr quint32 linkMask = selfMask | IN_ATTRIB;
/// For a directory whose entry is missing or cannot be watched itself.
constexpr quint32 entryMask = selfMask | IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
/// For the directories above that one: a removed directory tells nothing itself as long as somebody works in it.
constexpr quint32 removalMask = selfMask | IN_DELETE;

constexpr int longestLinkChain = 40;
constexpr int mostWalks = 10;

/// A name for exactly the inode that is open, symbolic links included.
QByteArray placeOf(const Descriptor& node)
{
    return "/proc/self/fd/" + QByteArray::number(node.get());
}

} // namespace

/// One way along a path. Every step is an open descriptor, so that what is watched is what was stepped on.
class PathWatch::Walk
{
public:
    struct Step
    {
        Descriptor node;
        QByteArray next; ///< in a directory: the entry that the way goes on with
        int wd = -1;
        Interest interest;
    };

    explicit Walk(int instance)
        : inotify(instance)
    {
    }

    /// Returns 0 or an errno value, EAGAIN when something missing turned up meanwhile.
    int go(const QByteArray& path);

    std::vector<Step> steps;

private:
    std::size_t addStep(Descriptor node);
    void push(const QByteArray& path);
    int watchStep(Step& step, quint32 mask) const;
    int watchEntry(std::size_t directory);
    Descriptor openNext(const Step& directory) const;

    int inotify;
    std::vector<QByteArray> ahead; ///< names still to go, the next one last
};

std::size_t PathWatch::Walk::addStep(Descriptor node)
{
    steps.emplace_back().node = std::move(node);
    return steps.size() - 1;
}

void PathWatch::Walk::push(const QByteArray& path)
{
    const auto names = path.split('/');
    for (auto name = names.crbegin(); name != names.crend(); ++name) {
        if (!name->isEmpty() && *name != ".")
            ahead.push_back(*name);
    }
}

int PathWatch::Walk::watchStep(Step& step, quint32 mask) const
{
    step.wd = ::inotify_add_watch(inotify, placeOf(step.node).constData(), mask | IN_MASK_ADD);
    if (step.wd < 0)
        return errno;
    step.interest.mask |= mask;
    return 0;
}

Descriptor PathWatch::Walk::openNext(const Step& directory) const
{
    return Descriptor(::openat(directory.node.get(), directory.next.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

int PathWatch::Walk::watchEntry(std::size_t directory)
{
    steps[directory].interest.names.push_back(steps[directory].next);
    if (const int error = watchStep(steps[directory], entryMask))
        return error;
    for (std::size_t above = 0; above < directory; ++above) {
        Step& step = steps[above];
        step.interest.names.push_back(step.next);
        if (!step.next.isEmpty())
            watchStep(step, removalMask); // worth having, but not all directories may be watched
    }
    return 0;
}

int PathWatch::Walk::go(const QByteArray& path)
{
    const std::size_t root = addStep(Descriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)));
    std::size_t here = root;
    push(path);
    for (int links = 0; !ahead.empty();) {
        steps[here].next = ahead.back();
        ahead.pop_back();
        Descriptor node = openNext(steps[here]);
        struct stat status = {};
        if (!node || ::fstat(node.get(), &status) != 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM)
                return errno;
            if (const int error = watchEntry(here))
                return error;
            return openNext(steps[here]) ? EAGAIN : 0;
        }

        const std::size_t reached = addStep(std::move(node));
        const bool isDirectory = S_ISDIR(status.st_mode);
        const bool isLink = S_ISLNK(status.st_mode);
        const bool isFile = !isDirectory && !isLink;
        const int error = watchStep(steps[reached], isFile ? fileMask : isLink ? linkMask : selfMask);
        if (error == EACCES && isFile)
            return watchEntry(here);
        if (error != 0 && error != EACCES)
            return error;
        if (isDirectory) {
            here = reached;
        } else if (isLink) {
            char target[PATH_MAX];
            const ssize_t length = ::readlinkat(steps[reached].node.get(), "", target, sizeof target);
            if (length < 0 || ++links > longestLinkChain)
                return 0; // leads nowhere until one of the links changes
            if (target[0] == '/')
                here = root;
            push(QByteArray(target, length));
        } else {
            return 0;
        }
    }
    return 0;
}

PathWatch::PathWatch()
    : inotify(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
}

int PathWatch::watch(Owner owner, const QByteArray& path)
{
    for (int walks = 0; walks < mostWalks; ++walks) {
        Walk walk(inotify.get());
        const int error = walk.go(path);
        if (error != 0) {
            for (const Walk::Step& step : walk.steps) {
                if (step.wd >= 0 && inodes.count(step.wd) == 0)
                    ::inotify_rm_watch(inotify.get(), step.wd);
            }
            if (error == EAGAIN)
                continue;
            return error;
        }

        for (auto& [wd, interests] : inodes)
            interests.erase(owner);
        for (const Walk::Step& step : walk.steps) {
            if (step.wd < 0)
                continue;
            Interest& interest = inodes[step.wd][owner];
            interest.mask |= step.interest.mask;
            interest.names.insert(interest.names.end(), step.interest.names.begin(), step.interest.names.end());
        }
        // What nobody is interested in any more must not wake the thread.
        for (const Walk::Step& step : walk.steps) {
            quint32 wanted = 0;
            if (step.wd >= 0) {
                for (const auto& [other, interest] : inodes[step.wd])
                    wanted |= interest.mask;
                ::inotify_add_watch(inotify.get(), placeOf(step.node).constData(), wanted);
            }
        }
        removeUnwanted();
        return 0;
    }
    return EAGAIN;
}

void PathWatch::forget(Owner owner)
{
    for (auto& [wd, interests] : inodes)
        interests.erase(owner);
    removeUnwanted();
}

void PathWatch::removeUnwanted()
{
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
    for (const char* at = buffer; at < buffer + size;) {
        inotify_event event;
        std::memcpy(&event, at, sizeof event);
        handleEvent(event.wd, event.mask, event.len > 0 ? at + sizeof event : nullptr, handle);
        at += sizeof event + event.len;
    }
}

} // namespace Zyr
