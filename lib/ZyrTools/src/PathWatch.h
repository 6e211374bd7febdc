#pragma once

#include "Descriptor.h"

#include <QtCore/QByteArray>

#include <functional>
#include <map>
#include <vector>

namespace Zyr {

/// Watches files by their paths through one inotify instance, for any number of owners.
///
/// Watched are the file itself and, for their own moving and removal only, the directories and symbolic links on the
/// way to it, so that other files in those directories wake nobody. Where something on the way is missing, its
/// directory is watched for it. Not thread-safe.
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

    /// Watches `path` as it leads now, in place of what was watched for `owner` before.
    /// @return 0, or the errno value of what cannot be watched
    int watch(Owner owner, const QByteArray& path);

    void forget(Owner owner);

    /// Reads some of what has happened, without waiting; fd() stays readable for the rest.
    void readEvents(const std::function<void(const Event&)>& handle);

private:
    struct Interest
    {
        quint32 mask = 0;
        std::vector<QByteArray> names; ///< entries of a directory that count; others do not
    };
    using Interests = std::map<Owner, Interest>;
    class Walk;

    void handleEvent(int wd, quint32 mask, const char* name, const std::function<void(const Event&)>& handle);
    void removeUnwanted();

    Descriptor inotify;
    std::map<int, Interests> inodes; ///< by watch descriptor, of which the kernel gives one per inode
};

} // namespace Zyr
