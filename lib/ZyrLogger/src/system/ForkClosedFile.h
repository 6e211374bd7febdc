#pragma once

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

    /// To be called around fork(). Their lock is never held during a system call of the store.
    static void beforeFork() noexcept;
    static void afterFork() noexcept;
    static void afterForkInChild() noexcept;

private:
    bool duplicateOwn(const TrustedPath& entry, CallWatch& watch);
    template <typename Call>
    bool take(CallWatch& watch, Call call);
    void swap(ForkClosedFile& other) noexcept;
    void enlist() noexcept;
    void delist() noexcept;

    int fd = -1;
    ForkClosedFile* previous = nullptr;
    ForkClosedFile* next = nullptr;
};

} // namespace Zyr
