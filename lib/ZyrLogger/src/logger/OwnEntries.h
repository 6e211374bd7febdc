#pragma once

/// Source file and lines that the library's own entries carry. They are part of its interface, so that a field engineer
/// recognises them in every release, and no __FILE__ and __LINE__.
namespace Zyr::OwnEntries {

inline constexpr const char* file = "lib/ZyrLogger/src/Logger";
inline constexpr int cannotWatchLine = 86;
inline constexpr int configurationChangedLine = 149;
inline constexpr int shutdownLine = 331;

} // namespace Zyr::OwnEntries
