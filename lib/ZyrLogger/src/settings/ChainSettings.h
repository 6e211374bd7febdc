#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>

#include <span>
#include <string>

namespace Zyr {

/// A key of the settings that goes to a property of the output chain as it stands.
struct ChainSetting
{
    QLatin1StringView key;
    const std::string& property;
    QVariant defaultValue; ///< in the type in which it is written to the file

    /// The values that POCO knows where it takes every other one silently for the last of these; else empty.
    std::span<const QLatin1StringView> known = {};
};

/// In the order in which they are applied.
std::span<const ChainSetting> fileChannelSettings();
std::span<const ChainSetting> formatterSettings();

} // namespace Zyr
