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

bool isTrue(const std::string& value)
{
    return Poco::icompare(value, "true") == 0;
}

bool isNone(const std::string& value)
{
    return value.empty() || Poco::icompare(value, "none") == 0;
}

std::string kept(const std::string& value)
{
    return isNone(value) ? "none" : value;
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

} // namespace

void FileProperties::set(const std::string& name, const std::string& value)
{
    FileProperties changed = *this;
    changed.change(name, value);
    *this = std::move(changed);
}

void FileProperties::change(const std::string& name, const std::string& value)
{
    if (name == Channel::PROP_PATH) {
        parsed.path = value;
    } else if (name == Channel::PROP_ROTATION) {
        parsed.rotation = parseRotation(value);
        rotation = value;
    } else if (name == Channel::PROP_ARCHIVE) {
        parsed.timestampedArchives = isSecond<Poco::InvalidArgumentException>(name, value, "number", "timestamp");
        archive = value;
    } else if (name == Channel::PROP_TIMES) {
        parsed.localTimes = isSecond<Poco::PropertyNotSupportedException>(name, value, "utc", "local");
    } else if (name == Channel::PROP_COMPRESS) {
        parsed.compress = isTrue(value);
    } else if (name == Channel::PROP_PURGEAGE) {
        parsed.purgeAge = parseAge(value);
        purgeAge = kept(value);
    } else if (name == Channel::PROP_PURGECOUNT) {
        parsed.purgeCount = parseCount(value);
        purgeCount = kept(value);
    } else if (name == Channel::PROP_FLUSH) {
        parsed.flush = isTrue(value);
    } else if (name == Channel::PROP_ROTATEONOPEN) {
        parsed.rotateOnOpen = isTrue(value);
    } else {
        throw Poco::PropertyNotSupportedException(name);
    }
}

std::string FileProperties::get(const std::string& name) const
{
    const auto text = [](bool value) { return value ? "true" : "false"; };
    if (name == Channel::PROP_PATH)
        return parsed.path;
    if (name == Channel::PROP_ROTATION)
        return rotation;
    if (name == Channel::PROP_ARCHIVE)
        return archive;
    if (name == Channel::PROP_TIMES)
        return parsed.localTimes ? "local" : "utc";
    if (name == Channel::PROP_COMPRESS)
        return text(parsed.compress);
    if (name == Channel::PROP_PURGEAGE)
        return purgeAge;
    if (name == Channel::PROP_PURGECOUNT)
        return purgeCount;
    if (name == Channel::PROP_FLUSH)
        return text(parsed.flush);
    if (name == Channel::PROP_ROTATEONOPEN)
        return text(parsed.rotateOnOpen);
    throw Poco::PropertyNotSupportedException(name);
}

} // namespace Zyr
