#pragma once

#include "system/CallWatch.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <span>
#include <system_error>

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace Zyr {

/// The value of errno.
inline std::error_code lastError() noexcept
{
    return {errno, std::system_category()};
}

inline bool isSameFile(const struct stat& one, const struct stat& other) noexcept
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// The system calls on open files, under the watch and again where a signal interrupted them. They return what the
/// system does, or false for -1, and leave the reason in errno. None of them allocates or throws, so that they can
/// stand between a write and the count of what it wrote.
namespace FileCalls {

bool status(int file, struct stat& found, CallWatch& watch) noexcept;

ssize_t read(int file, void* buffer, std::size_t size, CallWatch& watch) noexcept;
ssize_t readAt(int file, off_t offset, void* buffer, std::size_t size, CallWatch& watch) noexcept;

ssize_t write(int file, const void* bytes, std::size_t size, CallWatch& watch) noexcept;
/// The pieces in one call, which counts as hung after `limit`.
ssize_t write(int file, std::span<const iovec> pieces, std::chrono::seconds limit, CallWatch& watch) noexcept;
/// The same to a socket. That is the application's too, so the call does not block, rather than the socket.
ssize_t send(int socket, std::span<iovec> pieces, std::chrono::seconds limit, CallWatch& watch) noexcept;

/// Behind what was written last through this descriptor.
off_t position(int file) noexcept;
bool truncate(int file, off_t size, CallWatch& watch) noexcept;

/// What was written is on the disk afterwards.
bool synchronize(int file, CallWatch& watch) noexcept;

/// Gives a file the owner, group and mode of another one, as far as that is permitted: who could not read that one must
/// not be able to read this one, so without its group it gets no rights for a group.
void copyAccess(const struct stat& from, int to, CallWatch& watch) noexcept;
/// When it was read and written last.
void copyTimes(const struct stat& from, int to, CallWatch& watch) noexcept;

} // namespace FileCalls

} // namespace Zyr
