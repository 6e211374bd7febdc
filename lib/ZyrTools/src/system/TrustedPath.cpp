// Resolves a path that may lead through directories which other users can write.

#include "system/TrustedPath.h"

#include "system/Retry.h"
#include "system/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace Zyr {

namespace {

class PathCategory : public std::error_category
{
public:
    const char* name() const noexcept override { return "path"; }
    std::string message(int error) const override
    {
        return error == int(PathError::ForeignLink) ? "a symbolic link of another user on the way to it is not followed"
                                                    : "its name leads to another file";
    }
};

bool isInProc(const Descriptor& directory) noexcept
{
    struct statfs system = {};
    return ::fstatfs(directory.get(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

Descriptor openStep(int directory, const char* name, int flags) noexcept
{
    return Descriptor(retried([&] { return ::openat(directory, name, O_PATH | O_CLOEXEC | flags); }));
}

/// Opens a node without following it. O_DIRECTORY where a directory is needed, as only that triggers an automount.
Descriptor openNode(int directory, const char* name, bool isLast) noexcept
{
    Descriptor node = isLast ? Descriptor() : openStep(directory, name, O_NOFOLLOW | O_DIRECTORY);
    if (!node && (isLast || errno == ENOTDIR || errno == ELOOP))
        node = openStep(directory, name, O_NOFOLLOW);
    return node;
}

} // namespace

std::error_code make_error_code(PathError error) noexcept
{
    // Never destroyed: static objects log until the last is gone.
    alignas(PathCategory) static std::byte storage[sizeof(PathCategory)];
    static const PathCategory& category = *::new (storage) PathCategory;
    return {int(error), category};
}

bool isTrustedOwner(uid_t owner) noexcept
{
    return owner == 0 || owner == ::geteuid();
}

std::error_code TrustedPath::find(const char* path, Missing missing) noexcept
{
    const std::size_t size = std::strlen(path) + 1;
    if (size > PATH_MAX)
        return std::make_error_code(std::errc::filename_too_long);
    if (size == 1)
        return std::make_error_code(std::errc::no_such_file_or_directory);
    next = std::end(pending) - size;
    std::memcpy(next, path, size);
    linkEnd = next;
    links = 0;
    kernelLink = false;
    here = openStep(AT_FDCWD, *next == '/' ? "/" : ".", O_DIRECTORY);
    if (!here)
        return lastError();

    for (;;) {
        next += std::strspn(next, "/");
        const std::size_t length = std::strcspn(next, "/");
        if (length >= sizeof lastName)
            return std::make_error_code(std::errc::filename_too_long);
        std::memcpy(lastName, length == 0 ? "." : next, std::max<std::size_t>(length, 1));
        lastName[std::max<std::size_t>(length, 1)] = '\0';
        next += length;
        const bool isLast = *next == '\0';

        Descriptor node = openNode(directory(), lastName, isLast);
        if (!node && errno == ENOENT && isLast)
            return {};
        if (!node && errno == ENOENT && missing == Missing::CreateDirectories && next > linkEnd) {
            if (retried([&] { return ::mkdirat(directory(), lastName, 0777); }) != 0 && errno != EEXIST)
                return lastError();
            node = openNode(directory(), lastName, isLast);
        }
        struct stat status = {};
        if (!node || ::fstat(node.get(), &status) != 0)
            return lastError();
        if (!S_ISLNK(status.st_mode)) {
            if (isLast)
                return {};
            here = std::move(node);
        } else if (isInProc(here)) {
            kernelLink = isLast;
            if (isLast)
                return {};
            here = openStep(directory(), lastName, O_DIRECTORY);
            if (!here)
                return lastError();
        } else if (!isTrustedOwner(status.st_uid)) {
            return PathError::ForeignLink;
        } else if (const std::error_code error = follow(node)) {
            return error;
        }
    }
}

/// Puts the link's target before the rest of the path.
std::error_code TrustedPath::follow(const Descriptor& link)
{
    if (++links > maxLinks)
        return std::make_error_code(std::errc::too_many_symbolic_link_levels);
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(link.get(), "", target, sizeof target);
    if (length <= 0)
        return length < 0 ? lastError() : std::make_error_code(std::errc::no_such_file_or_directory);
    if (length == sizeof target || length > next - pending)
        return std::make_error_code(std::errc::filename_too_long);
    linkEnd = std::max<const char*>(linkEnd, next);
    next -= length;
    std::memcpy(next, target, std::size_t(length));
    if (target[0] != '/')
        return {};
    here = openStep(AT_FDCWD, "/", O_DIRECTORY);
    return here ? std::error_code() : lastError();
}

int TrustedPath::open(int flags, mode_t mode) const noexcept
{
    const int all = flags | O_CLOEXEC | (kernelLink ? 0 : O_NOFOLLOW);
    return retried([&] { return ::openat(directory(), lastName, all, mode); });
}

int TrustedPath::status(struct stat& found) const noexcept
{
    return retried([&] { return ::fstatat(directory(), lastName, &found, kernelLink ? 0 : AT_SYMLINK_NOFOLLOW); });
}

} // namespace Zyr
