// Every key of a logger's settings: its name, its default, what is legal, and how another value is treated. Constants
// all through: settings may be loaded until the last static object is gone.

#pragma once

#include "settings/QueueLimits.h"

#include <QtCore/QString>
#include <QtCore/QVariant>

#include <Poco/FileChannel.h>
#include <Poco/PatternFormatter.h>

#include <limits>
#include <optional>
#include <span>
#include <string>
#include <variant>

namespace Zyr {

/// Any text. Whoever it is for may refuse it.
struct TextKey
{
    QLatin1StringView name;
    QLatin1StringView defaultText;
};

/// "true" or "1"; "false", "0" or nothing. Everything else counts as true, and is reported.
struct SwitchKey
{
    QLatin1StringView name;
    bool defaultValue;
};

/// A whole number from 0 to `max`. A text that is no number counts as 0, and is reported; another number is refused.
struct CountKey
{
    QLatin1StringView name;
    quint32 defaultValue;
    quint32 max;
};

/// A text that goes to a property of the output chain as it stands. What that throws for is refused.
struct ChainKey
{
    QLatin1StringView name;
    const std::string& property;
    std::variant<QLatin1StringView, bool, int> defaultValue; ///< in the type in which it is added to the settings

    /// If POCO silently takes unknown values for the last of these: the known ones. Others are reported.
    std::span<const QLatin1StringView> known = {};

    QVariant defaultVariant() const
    {
        return std::visit([](auto value) { return QVariant(value); }, defaultValue);
    }
};

/// A key that is read only when it is there. A text that `parse` gives nothing for is refused.
template <typename Value>
struct OptionalKey
{
    QLatin1StringView name;
    Value defaultValue;
    std::optional<Value> (*parse)(const QString& text);
    QLatin1StringView legal; ///< for the report of another one
};

namespace LoggerKeys {

using namespace Qt::StringLiterals;

inline constexpr auto group = "Logger"_L1;

inline constexpr TextKey level{"level"_L1, "information"_L1}; // Poco::Logger::parseLevel() tells what is legal
inline constexpr TextKey textFilters{"textFilters"_L1, ""_L1};
inline constexpr SwitchKey checkRepeatedMsg{"checkRepeatedMsg"_L1, false};
// Each is a copy of its record, text included: all that a logger ever wrote must not be kept.
inline constexpr CountKey amountRepeatedMsg{"amountRepeatedMsg"_L1, 1, 100'000};
inline constexpr CountKey maxRepeatedMsgCounter{"maxRepeatedMsgCounter"_L1, 10, std::numeric_limits<quint32>::max()};

} // namespace LoggerKeys

/// "path" and "-path", whose default is the program's own, are read where they are applied.
namespace ChainKeys {

using namespace Qt::StringLiterals;
using File = Poco::FileChannel;
using Formatter = Poco::PatternFormatter;

inline constexpr auto group = "LoggerFileChannel"_L1;

inline constexpr QLatin1StringView switches[] = {"true"_L1, "false"_L1};
inline constexpr QLatin1StringView times[] = {"local"_L1, "utc"_L1};

/// In the order in which they are applied. FileProperties tells what is legal.
inline constexpr ChainKey fileChannel[] = {
    {"rotation"_L1, File::PROP_ROTATION, "1 M"_L1},      {"archive"_L1, File::PROP_ARCHIVE, "number"_L1},
    {"rotateTimes"_L1, File::PROP_TIMES, "local"_L1},    {"compress"_L1, File::PROP_COMPRESS, true, switches},
    {"purgeAge"_L1, File::PROP_PURGEAGE, "3 months"_L1}, {"purgeCount"_L1, File::PROP_PURGECOUNT, 10},
    {"flush"_L1, File::PROP_FLUSH, false, switches},     {"rotateOnOpen"_L1, File::PROP_ROTATEONOPEN, false, switches},
};

/// Likewise; LineFormatter and Poco::PatternFormatter tell what is legal.
inline constexpr ChainKey formatter[] = {
    {"pattern"_L1, Formatter::PROP_PATTERN, R"({"timestamp":"%Y-%m-%dT%H:%M:%S.%i%Z","level":"%p","msg":"%t"})"_L1},
    {"timestamp"_L1, Formatter::PROP_TIMES, "local"_L1, times},
    {"priorityNames"_L1, Formatter::PROP_PRIORITY_NAMES, "fatal,panic,error,warn,notice,info,debug,trace"_L1},
};

inline constexpr OptionalKey<std::size_t> queueSize{"queueSize"_L1, QueueLimits().bytes, QueueLimits::parseBytes,
                                                    "<n>, <n> K or <n> M, from 64 K to 1024 M"_L1};
inline constexpr OptionalKey<QueueLimits::Overflow> queueOverflow{"queueOverflow"_L1, QueueLimits().overflow,
                                                                  QueueLimits::parseOverflow, "wait or drop"_L1};

} // namespace ChainKeys

} // namespace Zyr
