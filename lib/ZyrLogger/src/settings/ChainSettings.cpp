#include "settings/ChainSettings.h"

#include <Poco/FileChannel.h>
#include <Poco/PatternFormatter.h>

#include <array>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

constexpr QLatin1StringView switches[] = {"true"_L1, "false"_L1};
constexpr QLatin1StringView times[] = {"local"_L1, "utc"_L1};

} // namespace

// The tables are never destroyed: settings may be loaded until the last static object is gone.

std::span<const ChainSetting> fileChannelSettings()
{
    using Channel = Poco::FileChannel;
    static const auto& settings = *new std::array{
        ChainSetting{"rotation"_L1, Channel::PROP_ROTATION, u"1 M"_s},
        ChainSetting{"archive"_L1, Channel::PROP_ARCHIVE, u"number"_s},
        ChainSetting{"rotateTimes"_L1, Channel::PROP_TIMES, u"local"_s},
        ChainSetting{"compress"_L1, Channel::PROP_COMPRESS, true, switches},
        ChainSetting{"purgeAge"_L1, Channel::PROP_PURGEAGE, u"3 months"_s},
        ChainSetting{"purgeCount"_L1, Channel::PROP_PURGECOUNT, 10},
        ChainSetting{"flush"_L1, Channel::PROP_FLUSH, false, switches},
        ChainSetting{"rotateOnOpen"_L1, Channel::PROP_ROTATEONOPEN, false, switches},
    };
    return settings;
}

std::span<const ChainSetting> formatterSettings()
{
    using Formatter = Poco::PatternFormatter;
    static const auto& settings = *new std::array{
        ChainSetting{"pattern"_L1, Formatter::PROP_PATTERN,
                     uR"({"timestamp":"%Y-%m-%dT%H:%M:%S.%i%Z","level":"%p","msg":"%t"})"_s},
        ChainSetting{"timestamp"_L1, Formatter::PROP_TIMES, u"local"_s, times},
        ChainSetting{"priorityNames"_L1, Formatter::PROP_PRIORITY_NAMES,
                     u"fatal,panic,error,warn,notice,info,debug,trace"_s},
    };
    return settings;
}

} // namespace Zyr
