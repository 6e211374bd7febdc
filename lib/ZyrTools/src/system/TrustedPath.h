#pragma once

#include "system/Descriptor.h"

#include <climits>
#include <system_error>

#include <sys/stat.h>
#include <sys/types.h>

namespace Zyr {

/// Errors that have no errno value. Each library has a category of its own: compare within one only.
enum class PathError {
    ForeignLink = 1, ///< a symbolic link on the way belongs to another user
    NotThisFile      ///< the name leads to another file by now
};

std::error_code make_error_code(PathError error) noexcept;

/// How many symbolic links are followed on the way of one path: as many as the kernel follows.
constexpr int maxLinks = 40;

/// Whether links of that user are followed: of root and of the user this process acts as.
bool isTrustedOwner(uid_t owner) noexcept;

/// A resolved path: an open directory, and a name in it that is no symbolic link or does not exist.
///
/// Symbolic links of other ordinary users are not followed, anywhere on the path: a user who may write a directory on
/// it could otherwise make this process, perhaps root's, write, rename and remove files elsewhere. Calls on the
/// directory's descriptor with O_NOFOLLOW are safe against later changes too. Links in /proc are the kernel's, and it
/// follows them.
///
/// Allocates no memory, and holds up to three descriptors at a time.
class TrustedPath
{
public:
    enum class Missing { Fail, CreateDirectories };

    TrustedPath() = default;
    TrustedPath(const TrustedPath&) = delete;
    TrustedPath& operator=(const TrustedPath&) = delete;

    /// With CreateDirectories, missing directories are created, except those in a link's target: it may lead to a disk
    /// that is not mounted yet. An error is PathError::ForeignLink or the system's.
    std::error_code find(const char* path, Missing missing = Missing::Fail) noexcept;

    /// For the `…at()` calls, together with name(). Opened with O_PATH.
    int directory() const noexcept { return here.get(); }
    const char* name() const noexcept { return lastName; }

    /// The name is a link of the kernel's in /proc: open() and status() follow it.
    bool isKernelLink() const noexcept { return kernelLink; }

    /// As openat() does. ELOOP: a link has taken the name meanwhile, so find() again.
    int open(int flags, mode_t mode = 0666) const noexcept;
    /// As fstatat() does. -1 with errno.
    int status(struct stat& found) const noexcept;

private:
    std::error_code follow(const Descriptor& link);

    Descriptor here;
    char pending[2 * PATH_MAX]; ///< the rest of the path lies at its end
    char* next = nullptr;
    const char* linkEnd = nullptr; ///< end of what links have put before the rest
    int links = 0;
    char lastName[NAME_MAX + 1];
    bool kernelLink = false;
};

} // namespace Zyr

template <>
struct std::is_error_code_enum<Zyr::PathError> : std::true_type
{
};
