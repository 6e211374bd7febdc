#pragma once

#include "base/Mutex.h"
#include "system/CallWatch.h"

#include <utility>

#include <sys/types.h>

namespace Zyr {

class TrustedPath;

/// A file descriptor that is closed in a forked child: a copy there would keep the lock on the file as long as the
/// child lives, even after the parent has ended.
class ForkClosedFile
{
public:
    ForkClosedFile() = default;
    ForkClosedFile(ForkClosedFile&& other) noexcept { swap(other); }
    ForkClosedFile& operator=(ForkClosedFile&& other) noexcept
    {
        swap(other);
        return *this;
    }
    ~ForkClosedFile();

    /// As openat() does; errno tells what failed.
    bool open(int directory, const char* name, int flags, CallWatch& watch, mode_t mode = 0666);
    /// What a path leads to. A path to a descriptor of this process, as /dev/stdout, stands for the descriptor itself
    /// where that is a socket, which cannot be opened by name.
    bool open(const TrustedPath& path, int flags, CallWatch& watch);
    void close(CallWatch& watch) noexcept;

    int get() const noexcept { return fd; }
    explicit operator bool() const noexcept { return fd >= 0; }

    /// To be called around fork(): the first takes the list's mutex, which is never held during a system call of the
    /// store, and the others release it.
    static void beforeFork() noexcept ZYR_UNCHECKED_LOCKING;
    static void afterFork() noexcept ZYR_UNCHECKED_LOCKING;
    static void afterForkInChild() noexcept ZYR_UNCHECKED_LOCKING;

private:
    bool duplicateOwn(const TrustedPath& entry, CallWatch& watch);
    template <typename Call>
    bool take(CallWatch& watch, Call call);
    void swap(ForkClosedFile& other) noexcept ZYR_EXCLUDES(listMutex);
    void enlist() noexcept ZYR_REQUIRES(listMutex);
    void delist() noexcept ZYR_REQUIRES(listMutex);
    static unsigned forksSoFar() noexcept ZYR_EXCLUDES(listMutex);

    static Mutex listMutex;
    static ForkClosedFile* first ZYR_GUARDED_BY(listMutex);
    static unsigned forks ZYR_GUARDED_BY(listMutex); ///< that this process has made

    int fd = -1; ///< the owner's; set together with the entry in the list
    ForkClosedFile* previous ZYR_GUARDED_BY(listMutex) = nullptr;
    ForkClosedFile* next ZYR_GUARDED_BY(listMutex) = nullptr;
};

} // namespace Zyr
