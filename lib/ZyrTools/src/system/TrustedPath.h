#pragma once

#include "system/Descriptor.h"

#include <climits>
#include <system_error>

#include <sys/stat.h>
#include <sys/types.h>

namespace Zyr {

/// What the system itself has no error number for. Compared within one library only.
enum class PathError {
    ForeignLink = 1, ///< a symbolic link on the way belongs to another user
    NotThisFile      ///< the name leads to another file by now
};

std::error_code make_error_code(PathError error) noexcept;

/// How many symbolic links are followed on the way of one path: as many as the kernel follows.
constexpr int maxLinks = 40;

/// Whether links of that user are followed: of root and of the user this process acts as.
bool isTrustedOwner(uid_t owner) noexcept;

/// Where a path leads now: an open directory and a name in it that is no symbolic link, or is missing.
///
/// A link that another ordinary user made is not followed, anywhere on the way: who may write a directory that the path
/// runs through could otherwise have this process, perhaps root's, write, rename and remove files of others. Whoever
/// goes on from here through the directory and with O_NOFOLLOW cannot be led elsewhere meanwhile either. In /proc,
/// where only the kernel makes links, it follows them itself.
///
/// Takes no memory from the heap, and up to three descriptors at a time.
class TrustedPath
{
public:
    enum class Missing { Fail, CreateDirectories };

    TrustedPath() = default;
    TrustedPath(const TrustedPath&) = delete;
    TrustedPath& operator=(const TrustedPath&) = delete;

    /// With CreateDirectories, missing directories that `path` names are created, but for those that a link names: it
    /// may lead to a disk that is not there yet. An error is PathError::ForeignLink or the system's.
    std::error_code find(const char* path, Missing missing = Missing::Fail) noexcept;

    /// For the `…at()` calls, together with name(). Opened with O_PATH.
    int directory() const noexcept { return here.get(); }
    const char* name() const noexcept { return lastName; }

    /// The name is a link of the kernel's in /proc, to be followed by whoever opens it.
    bool isKernelLink() const noexcept { return kernelLink; }

    /// As openat() does. ELOOP: a link has taken the name meanwhile, so find() again.
    int open(int flags, mode_t mode = 0666) const noexcept;
    /// As fstatat() does. -1 with errno.
    int status(struct stat& found) const noexcept;

private:
    std::error_code follow(const Descriptor& link);

    Descriptor here;
    char pending[2 * PATH_MAX]; ///< what is still to go lies at its end
    char* next = nullptr;
    const char* linkEnd = nullptr; ///< where what links have added to that ends
    int links = 0;
    char lastName[NAME_MAX + 1];
    bool kernelLink = false;
};

} // namespace Zyr

template <>
struct std::is_error_code_enum<Zyr::PathError> : std::true_type
{
};
