// What the texts of the file channel's properties mean.

#include "settings/FileProperties.h"

#include "settings/Quantity.h"
#include "settings/RotationText.h"

#include <Poco/Exception.h>
#include <Poco/FileChannel.h>
#include <Poco/String.h>

#include <utility>

namespace Zyr {

namespace {

using Channel = Poco::FileChannel;

template <bool FileSettings::*Switch>
std::string setSwitch(FileSettings& settings, const std::string& value)
{
    settings.*Switch = Poco::icompare(value, "true") == 0;
    return settings.*Switch ? "true" : "false";
}

bool isNone(const std::string& value)
{
    return value.empty() || Poco::icompare(value, "none") == 0;
}

/// Whether `value` is the second of two texts, of which it has to be one.
template <typename Refusal>
bool isSecond(const std::string& name, const std::string& value, const char* first, const char* second)
{
    if (value != first && value != second)
        throw Refusal(name + " '" + value + "': legal are " + first + " and " + second);
    return value == second;
}

std::optional<std::chrono::seconds> parseAge(const std::string& value)
{
    if (isNone(value))
        return {};
    std::optional<Quantity> age = Quantity::parse(value);
    if (age && age->unit.empty())
        age->unit = "seconds";
    const auto span = age ? timeSpan(*age) : std::nullopt;
    if (!span)
        throw Poco::InvalidArgumentException(
            "purgeAge '" + value +
            "': legal are none and <n>, or <n> seconds, minutes, hours, days, weeks or months, " + numberRange);
    return span;
}

std::optional<unsigned> parseCount(const std::string& value)
{
    if (isNone(value))
        return {};
    const std::optional<Quantity> count = Quantity::parse(value);
    if (!count || !count->unit.empty() || !isInRange(count->number))
        throw Poco::InvalidArgumentException("purgeCount '" + value + "': legal are none and <n>, " + numberRange);
    return static_cast<unsigned>(*count->number);
}

struct Property
{
    const std::string& name;
    const char* defaultText; ///< says what a FileSettings begins with

    /// Throws, or returns the text to keep.
    std::string (*set)(FileSettings& settings, const std::string& value);
};

using Settings = FileSettings&;
using Text = const std::string&;

constexpr Property properties[] = {
    {Channel::PROP_PATH, "", [](Settings settings, Text value) { return settings.path = value; }},
    {Channel::PROP_ROTATION, "",
     [](Settings settings, Text value) {
         settings.rotation = parseRotation(value);
         return value;
     }},
    {Channel::PROP_ARCHIVE, "",
     [](Settings settings, Text value) {
         settings.timestampedArchives =
             isSecond<Poco::InvalidArgumentException>(Channel::PROP_ARCHIVE, value, "number", "timestamp");
         return value;
     }},
    {Channel::PROP_TIMES, "utc",
     [](Settings settings, Text value) {
         settings.localTimes =
             isSecond<Poco::PropertyNotSupportedException>(Channel::PROP_TIMES, value, "utc", "local");
         return value;
     }},
    {Channel::PROP_COMPRESS, "false", setSwitch<&FileSettings::compress>},
    {Channel::PROP_PURGEAGE, "",
     [](Settings settings, Text value) {
         settings.purgeAge = parseAge(value);
         return settings.purgeAge ? value : "none";
     }},
    {Channel::PROP_PURGECOUNT, "",
     [](Settings settings, Text value) {
         settings.purgeCount = parseCount(value);
         return settings.purgeCount ? value : "none";
     }},
    {Channel::PROP_FLUSH, "true", setSwitch<&FileSettings::flush>},
    {Channel::PROP_ROTATEONOPEN, "false", setSwitch<&FileSettings::rotateOnOpen>},
};

const Property& find(const std::string& name)
{
    for (const Property& property : properties) {
        if (property.name == name)
            return property;
    }
    throw Poco::PropertyNotSupportedException(name);
}

} // namespace

void FileProperties::set(const std::string& name, const std::string& value)
{
    FileProperties changed = *this;
    changed.texts[name] = find(name).set(changed.parsed, value);
    *this = std::move(changed);
}

std::string FileProperties::get(const std::string& name) const
{
    const Property& property = find(name);
    const auto text = texts.find(name);
    return text == texts.end() ? property.defaultText : text->second;
}

} // namespace Zyr
