#include "system/TrackedFile.h"

#include "system/Descriptor.h"

#include <mutex>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

namespace {

constinit std::mutex listMutex;
constinit TrackedFile* first = nullptr;
constinit unsigned forks = 0; // that this process has made

unsigned forksSoFar() noexcept
{
    const std::lock_guard lock(listMutex);
    return forks;
}

} // namespace

bool TrackedFile::open(int directory, const char* name, int flags, CallWatch& watch, mode_t mode)
{
    return take(watch, [directory, name, flags, mode](bool again) {
        return ::openat(directory, name, (again ? flags & ~O_EXCL : flags) | O_CLOEXEC, mode);
    });
}

bool TrackedFile::duplicate(int descriptor, CallWatch& watch)
{
    return take(watch, [descriptor](bool) { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0); });
}

template <typename Call>
bool TrackedFile::take(CallWatch& watch, Call call)
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
            const std::lock_guard lock(listMutex);
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

TrackedFile::~TrackedFile()
{
    CallWatch unwatched;
    close(unwatched);
}

void TrackedFile::close(CallWatch& watch) noexcept
{
    if (fd < 0)
        return;
    {
        const std::lock_guard lock(listMutex);
        delist();
    }
    watch([file = std::exchange(fd, -1)] { return ::close(file), 0; });
}

void TrackedFile::swap(TrackedFile& other) noexcept
{
    const std::lock_guard lock(listMutex);
    for (TrackedFile* file : {this, &other}) {
        if (file->fd >= 0)
            file->delist();
    }
    std::swap(fd, other.fd);
    for (TrackedFile* file : {this, &other}) {
        if (file->fd >= 0)
            file->enlist();
    }
}

void TrackedFile::enlist() noexcept
{
    previous = nullptr;
    next = first;
    if (first)
        first->previous = this;
    first = this;
}

void TrackedFile::delist() noexcept
{
    (previous ? previous->next : first) = next;
    if (next)
        next->previous = previous;
}

void TrackedFile::beforeFork() noexcept
{
    listMutex.lock();
    ++forks;
}

void TrackedFile::afterFork() noexcept
{
    listMutex.unlock();
}

void TrackedFile::afterForkInChild() noexcept
{
    while (first) {
        TrackedFile* const file = first;
        file->delist();
        ::close(std::exchange(file->fd, -1));
    }
    listMutex.unlock();
}

} // namespace Zyr
