// The system calls on open files: contents, length, owner and times.

#include "system/FileCalls.h"

#include <sys/socket.h>
#include <unistd.h>

namespace Zyr::FileCalls {

bool status(int file, struct stat& found, CallWatch& watch) noexcept
{
    return watch([&] { return ::fstat(file, &found); }) == 0;
}

ssize_t read(int file, void* buffer, std::size_t size, CallWatch& watch) noexcept
{
    return watch([&] { return ::read(file, buffer, size); });
}

ssize_t readAt(int file, off_t offset, void* buffer, std::size_t size, CallWatch& watch) noexcept
{
    return watch([&] { return ::pread(file, buffer, size, offset); });
}

ssize_t write(int file, const void* bytes, std::size_t size, CallWatch& watch) noexcept
{
    return watch([&] { return ::write(file, bytes, size); });
}

ssize_t write(int file, std::span<const iovec> pieces, std::chrono::seconds limit, CallWatch& watch) noexcept
{
    return watch([&] { return ::writev(file, pieces.data(), int(pieces.size())); }, limit);
}

ssize_t send(int socket, std::span<iovec> pieces, std::chrono::seconds limit, CallWatch& watch) noexcept
{
    msghdr message = {};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    return watch([&] { return ::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL); }, limit);
}

off_t position(int file) noexcept
{
    return ::lseek(file, 0, SEEK_CUR);
}

bool truncate(int file, off_t size, CallWatch& watch) noexcept
{
    return watch([&] { return ::ftruncate(file, size); }) == 0;
}

bool synchronize(int file, CallWatch& watch) noexcept
{
    return watch([&] { return ::fdatasync(file); }, maxSyncTime) == 0;
}

void copyAccess(const struct stat& from, int to, CallWatch& watch) noexcept
{
    if (watch([&] { return ::fchown(to, from.st_uid, from.st_gid); }) != 0)
        watch([&] { return ::fchown(to, uid_t(-1), from.st_gid); });
    struct stat made = {};
    mode_t mode = from.st_mode & 0777;
    if (!status(to, made, watch) || made.st_gid != from.st_gid)
        mode &= ~mode_t(S_IRWXG);
    watch([&] { return ::fchmod(to, mode); });
}

void copyTimes(const struct stat& from, int to, CallWatch& watch) noexcept
{
    const timespec times[] = {from.st_atim, from.st_mtim};
    watch([&] { return ::futimens(to, times); });
}

} // namespace Zyr::FileCalls
