#pragma once

#include "system/CallWatch.h"

namespace Zyr {

/// The locks of open files, none of which is waited for. A file system that has no such locks counts as one on which
/// nobody else has any.
namespace FileLocks {

/// flock(): of one owner, until the file is closed. False when somebody else has it.
bool own(int file, CallWatch& watch) noexcept;

/// Locks on the contents, of open files rather than of processes (F_OFD_SETLK): many may share, only one exclude all
/// others. False when somebody else has one that forbids it.
bool share(int file, CallWatch& watch) noexcept;
bool exclude(int file, CallWatch& watch) noexcept;
void release(int file, CallWatch& watch) noexcept;
/// Whether somebody else has one of either kind.
bool isHeld(int file, CallWatch& watch) noexcept;

} // namespace FileLocks

} // namespace Zyr
