#pragma once

#include <cstdint>

/// The system's time zone, as the C library knows it.
namespace Zyr::LocalTime {

/// Seconds east of UTC, at that second since the epoch.
std::int32_t offsetAt(std::int64_t second) noexcept;

/// Has the C library look for another zone, in TZ or /etc/localtime, where it has not looked within this second.
/// What offsetAt() said holds as long as this returns the same.
std::uint32_t checkZone() noexcept;

/// For the child of a fork. The C library does not reset the lock of its time zone there: where another thread held it,
/// the child does not ask again and keeps the last known offset.
void afterForkInChild() noexcept;

} // namespace Zyr::LocalTime
