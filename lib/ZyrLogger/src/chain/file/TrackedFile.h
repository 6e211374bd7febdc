#pragma once

#include "chain/file/CallWatch.h"

#include <string>
#include <utility>

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

    /// As ::open() does; errno tells what failed.
    bool open(const std::string& path, int flags, CallWatch& watch);
    void close(CallWatch& watch) noexcept;

    int get() const noexcept { return fd; }
    explicit operator bool() const noexcept { return fd >= 0; }

    /// To be called around fork(). Their lock is never held across a system call of the store.
    static void beforeFork() noexcept;
    static void afterFork() noexcept;
    static void afterForkInChild() noexcept;

private:
    void swap(TrackedFile& other) noexcept;
    void enlist() noexcept;
    void delist() noexcept;

    int fd = -1;
    TrackedFile* previous = nullptr;
    TrackedFile* next = nullptr;
};

} // namespace Zyr
