#pragma once

#include "system/Descriptor.h"

#include <QtCore/QByteArray>

#include <functional>
#include <map>
#include <vector>

namespace Zyr {

/// Watches files by their paths through one inotify instance, for any number of owners.
///
/// Watches the file itself, and the directories and symbolic links on its path only for being moved or removed, so that
/// other files in those directories wake nobody. Where a part of the path is missing, its parent directory is watched
/// for its creation. Not thread-safe, except for follow().
class PathWatch
{
public:
    using Owner = const void*;

    struct Event
    {
        Owner owner;
        bool pathChanged; ///< the path may lead elsewhere now: walk it again
        bool moved;       ///< more than attributes has changed
        bool written;     ///< the file was written to
        bool closed;      ///< a writer has closed the file
    };

    /// Opens the inotify instance; fd() tells whether that succeeded.
    PathWatch();

    int fd() const noexcept { return inotify.get(); }

    struct Interest
    {
        quint32 mask = 0;
        std::vector<QByteArray> names; ///< of a directory: the entries whose events count
    };
    /// What is watched for one path, by watch descriptor: the kernel gives one per inode.
    using WatchSet = std::map<int, Interest>;
    using Masks = std::map<int, quint32>;

    /// Watching a path takes three steps, as the second may block in the file system: beginWalk(), follow(), endWalk().
    /// One walk at a time; no other thread may read events meanwhile, which may belong to watches just added.
    /// @return the masks that other owners want, for follow()
    Masks beginWalk(Owner owner);

    /// Adds watches along `path` as it leads now, with two descriptors open at a time. Others may forget() meanwhile.
    /// @return 0, or the errno value of what cannot be watched: EAGAIN if the path kept changing
    int follow(const QByteArray& path, const Masks& others, WatchSet& watches) const;

    /// From now on `owner` gets the events of `watches`, and no longer those of its former ones.
    void endWalk(Owner owner, const WatchSet& watches);

    void forget(Owner owner);

    /// Reads one buffer of events without blocking; fd() stays readable while there are more.
    void readEvents(const std::function<void(const Event&)>& handle);

private:
    using Interests = std::map<Owner, Interest>;
    class PathWalker;

    void handleEvent(int wd, quint32 mask, const char* name, const std::function<void(const Event&)>& handle);
    void removeUnwanted();

    Descriptor inotify;
    std::map<int, Interests> inodes; ///< by watch descriptor
    bool walking = false;            ///< no watch may be removed: the walk may have got the same watch descriptor
};

} // namespace Zyr
