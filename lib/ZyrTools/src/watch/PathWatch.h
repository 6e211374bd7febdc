#pragma once

#include "system/Descriptor.h"

#include <QtCore/QByteArray>

#include <functional>
#include <map>
#include <vector>

namespace Zyr {

/// Watches files by their paths through one inotify instance, for any number of owners.
///
/// Watched are the file itself and, for their own moving and removal only, the directories and symbolic links on the
/// way to it, so that other files in those directories wake nobody. Where something on the way is missing, its
/// directory is watched for it. Not thread-safe, except for follow().
class PathWatch
{
public:
    using Owner = const void*;

    struct Event
    {
        Owner owner;
        bool pathChanged; ///< the path may lead somewhere else now: call watch() again
        bool moved;       ///< not only its attributes have changed
        bool written;     ///< somebody writes to the file
        bool closed;      ///< somebody who could write to the file has closed it
    };

    /// Opens the inotify instance; fd() tells whether that succeeded.
    PathWatch();

    int fd() const noexcept { return inotify.get(); }

    struct Interest
    {
        quint32 mask = 0;
        std::vector<QByteArray> names; ///< entries of a directory that count; others do not
    };
    /// What is watched for one path, by watch descriptor, of which the kernel gives one per inode.
    using Way = std::map<int, Interest>;
    using Masks = std::map<int, quint32>;

    /// A path is watched in three steps, since the middle one takes as long as the file system does: beginWalk(),
    /// follow() and endWalk(). There is only one such walk at a time, and nobody reads events during a walk of another
    /// thread: they may be for what is being walked.
    /// @return what others than `owner` want of the inodes, for follow()
    Masks beginWalk(Owner owner);

    /// Watches `path` as it leads now, holding two descriptors at a time. The others may forget() meanwhile.
    /// @return 0, or the errno value of what cannot be watched: EAGAIN where the path has changed all the time
    int follow(const QByteArray& path, const Masks& others, Way& way) const;

    /// Has events on `way` handed to `owner`, in place of what was watched for it before.
    void endWalk(Owner owner, const Way& way);

    void forget(Owner owner);

    /// Reads some of what has happened, without waiting; fd() stays readable for the rest.
    void readEvents(const std::function<void(const Event&)>& handle);

private:
    using Interests = std::map<Owner, Interest>;
    class Walk;

    void handleEvent(int wd, quint32 mask, const char* name, const std::function<void(const Event&)>& handle);
    void removeUnwanted();

    Descriptor inotify;
    std::map<int, Interests> inodes; ///< by watch descriptor
    bool walking = false;            ///< no watch is removed, as the walk may rely on it
};

} // namespace Zyr
