#pragma once

#include "system/CallWatch.h"
#include "system/SameFile.h"
#include "system/SystemError.h"

#include <chrono>
#include <cstddef>
#include <span>

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace Zyr {

/// The system calls on open files, under the watch and repeated after EINTR. They return what the system call does, or
/// false for -1, and leave the reason in errno. None of them allocates or throws, so that nothing can come between a
/// write and the count of what it wrote.
namespace FileCalls {

/// After which a call that synchronizes counts as hung.
inline constexpr std::chrono::seconds maxSyncTime(10);

bool status(int file, struct stat& found, CallWatch& watch) noexcept;

ssize_t read(int file, void* buffer, std::size_t size, CallWatch& watch) noexcept;
ssize_t readAt(int file, off_t offset, void* buffer, std::size_t size, CallWatch& watch) noexcept;

ssize_t write(int file, const void* bytes, std::size_t size, CallWatch& watch) noexcept;
/// All pieces in one call, which counts as hung after `limit`.
ssize_t write(int file, std::span<const iovec> pieces, std::chrono::seconds limit, CallWatch& watch) noexcept;
/// The same to a socket. The call is non-blocking, not the socket, which the application uses too.
ssize_t send(int socket, std::span<iovec> pieces, std::chrono::seconds limit, CallWatch& watch) noexcept;

/// The file offset: the end of what was last written through this descriptor.
off_t position(int file) noexcept;
bool truncate(int file, off_t size, CallWatch& watch) noexcept;

/// fdatasync(): what was written is on the disk afterwards.
bool synchronize(int file, CallWatch& watch) noexcept;

/// Gives a file the owner, group and mode of another one, as far as permitted. Where the group cannot be set, the file
/// gets no group rights: it must not become readable for those who could not read the other one.
void copyAccess(const struct stat& from, int to, CallWatch& watch) noexcept;
/// Times of the last read and the last write.
void copyTimes(const struct stat& from, int to, CallWatch& watch) noexcept;

} // namespace FileCalls

} // namespace Zyr
