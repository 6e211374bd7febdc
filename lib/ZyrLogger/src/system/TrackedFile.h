#pragma once

#include "system/CallWatch.h"

#include <utility>

#include <sys/types.h>

namespace Zyr {

/// A file descriptor that a forked child does not keep: a copy there would keep the lock on the file for as long as the
/// child lives, also after its parent has ended.
class TrackedFile
{
public:
    TrackedFile() = default;
    TrackedFile(TrackedFile&& other) noexcept { swap(other); }
    TrackedFile& operator=(TrackedFile&& other) noexcept
    {
        swap(other);
        return *this;
    }
    ~TrackedFile();

    /// As openat() does; errno tells what failed.
    bool open(int directory, const char* name, int flags, CallWatch& watch, mode_t mode = 0666);
    /// Another descriptor of what that one is of.
    bool duplicate(int descriptor, CallWatch& watch);
    void close(CallWatch& watch) noexcept;

    int get() const noexcept { return fd; }
    explicit operator bool() const noexcept { return fd >= 0; }

    /// To be called around fork(). Their lock is never held across a system call of the store.
    static void beforeFork() noexcept;
    static void afterFork() noexcept;
    static void afterForkInChild() noexcept;

private:
    template <typename Call>
    bool take(CallWatch& watch, Call call);
    void swap(TrackedFile& other) noexcept;
    void enlist() noexcept;
    void delist() noexcept;

    int fd = -1;
    TrackedFile* previous = nullptr;
    TrackedFile* next = nullptr;
};

} // namespace Zyr
