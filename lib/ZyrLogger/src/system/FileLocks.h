#pragma once

#include "system/CallWatch.h"

namespace Zyr {

/// The locks of open files; no call waits. On a file system without such locks, nobody else counts as having one.
namespace FileLocks {

/// flock(): exclusive, until the file is closed. False when somebody else has it.
bool own(int file, CallWatch& watch) noexcept;

/// Locks on the contents, of open files rather than of processes (F_OFD_SETLK): shared or exclusive. False when
/// somebody else has a conflicting one.
bool share(int file, CallWatch& watch) noexcept;
bool exclude(int file, CallWatch& watch) noexcept;
void release(int file, CallWatch& watch) noexcept;
/// Whether somebody else has one of either kind.
bool isHeld(int file, CallWatch& watch) noexcept;

} // namespace FileLocks

} // namespace Zyr
