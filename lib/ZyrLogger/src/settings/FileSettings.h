#pragma once

#include "settings/RotationRule.h"

#include <chrono>
#include <optional>
#include <string>

namespace Zyr {

/// The file channel's properties, parsed for the worker thread.
struct FileSettings
{
    std::string path;
    RotationRule rotation;
    bool timestampedArchives = false; ///< else numbered
    bool localTimes = false;          ///< for rotation at a time of day and in archive names; else UTC
    bool compress = false;
    std::optional<std::chrono::seconds> purgeAge; ///< up to 100 years
    std::optional<unsigned> purgeCount;           ///< at least 1
    bool flush = true;
    bool rotateOnOpen = false;

    bool operator==(const FileSettings&) const = default;
};

} // namespace Zyr
