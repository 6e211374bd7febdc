// File descriptors that are closed in a forked child.

#include "system/ForkClosedFile.h"

#include "system/Descriptor.h"
#include "system/FileCalls.h"
#include "system/TrustedPath.h"

#include <cerrno>
#include <charconv>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zyr {

constinit Mutex ForkClosedFile::listMutex;
constinit ForkClosedFile* ForkClosedFile::first = nullptr;
constinit unsigned ForkClosedFile::forks = 0;

unsigned ForkClosedFile::forksSoFar() noexcept
{
    const Guard guard(listMutex);
    return forks;
}

bool ForkClosedFile::open(int directory, const char* name, int flags, CallWatch& watch, mode_t mode)
{
    return take(watch, [directory, name, flags, mode](bool again) {
        return ::openat(directory, name, (again ? flags & ~O_EXCL : flags) | O_CLOEXEC, mode);
    });
}

bool ForkClosedFile::open(const TrustedPath& path, int flags, CallWatch& watch)
{
    const int follow = path.isKernelLink() ? 0 : O_NOFOLLOW;
    if (open(path.directory(), path.name(), flags | follow, watch))
        return true;
    return path.isKernelLink() && errno == ENXIO && duplicateOwn(path, watch); // which a socket fails with
}

/// The descriptor whose entry in /proc the path leads to, where it is one of this process. Else errno stays.
bool ForkClosedFile::duplicateOwn(const TrustedPath& entry, CallWatch& watch)
{
    const int error = errno;
    struct stat found = {};
    struct stat own = {};
    const char* const name = entry.name();
    int number = -1;
    const bool isNumber = std::from_chars(name, name + std::strlen(name), number).ec == std::errc();
    if (isNumber && ::fstat(entry.directory(), &found) == 0 && ::stat("/proc/self/fd", &own) == 0 &&
        isSameFile(found, own))
        return take(watch, [number](bool) { return ::fcntl(number, F_DUPFD_CLOEXEC, 0); });
    errno = error;
    return false;
}

template <typename Call>
bool ForkClosedFile::take(CallWatch& watch, Call call)
{
    close(watch);
    for (bool again = false;; again = true) {
        const unsigned before = forksSoFar();
        int opened = watch([&] { return call(again); });
        if (opened >= 0 && opened <= STDERR_FILENO)
            opened = Descriptor::moveUp(opened);
        if (opened < 0)
            return false;
        {
            const Guard guard(listMutex);
            if (forks == before) {
                fd = opened;
                enlist();
                return true;
            }
        }
        // A child may have it too, and does not know of it.
        watch([&] { return ::close(opened), 0; });
    }
}

ForkClosedFile::~ForkClosedFile()
{
    CallWatch unwatched;
    close(unwatched);
}

void ForkClosedFile::close(CallWatch& watch) noexcept
{
    if (fd < 0)
        return;
    {
        const Guard guard(listMutex);
        delist();
    }
    watch([file = std::exchange(fd, -1)] { return ::close(file), 0; });
}

void ForkClosedFile::swap(ForkClosedFile& other) noexcept
{
    const Guard guard(listMutex);
    for (ForkClosedFile* file : {this, &other}) {
        if (file->fd >= 0)
            file->delist();
    }
    std::swap(fd, other.fd);
    for (ForkClosedFile* file : {this, &other}) {
        if (file->fd >= 0)
            file->enlist();
    }
}

void ForkClosedFile::enlist() noexcept
{
    previous = nullptr;
    next = first;
    if (first)
        first->previous = this;
    first = this;
}

void ForkClosedFile::delist() noexcept
{
    (previous ? previous->next : first) = next;
    if (next)
        next->previous = previous;
}

void ForkClosedFile::beforeFork() noexcept
{
    listMutex.lock();
    ++forks;
}

void ForkClosedFile::afterFork() noexcept
{
    listMutex.unlock();
}

void ForkClosedFile::afterForkInChild() noexcept
{
    while (first) {
        ForkClosedFile* const file = first;
        file->delist();
        ::close(std::exchange(file->fd, -1));
    }
    listMutex.unlock();
}

} // namespace Zyr
