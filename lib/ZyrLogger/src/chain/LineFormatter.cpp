// The chain's formatter: properties become patterns.

#include "chain/LineFormatter.h"

#include <Poco/String.h>

namespace Zyr {

LineFormatter::LineFormatter()
    : shared(std::make_shared<LinePatterns>())
{
}

/// Appends, as POCO's formatters do.
void LineFormatter::format(const Poco::Message& message, std::string& text)
{
    LineBuffer line;
    shared->current().format(message, line);
    text.append(line.view());
}

void LineFormatter::setProperty(const std::string& name, const std::string& value)
{
    shared->replace([&](LinePattern::Source& source) {
        if (name == PROP_PATTERN)
            source.pattern = value;
        else if (name == PROP_TIMES)
            source.localTime = Poco::icompare(value, "local") == 0;
        else if (name == PROP_PRIORITY_NAMES)
            source.priorityNames = value;
        else
            Formatter::setProperty(name, value); // which throws
    });
}

std::string LineFormatter::getProperty(const std::string& name) const
{
    const LinePattern::Source& source = shared->current().source();
    if (name == PROP_PATTERN)
        return source.pattern;
    if (name == PROP_TIMES)
        return source.localTime ? "local" : "UTC";
    if (name == PROP_PRIORITY_NAMES)
        return source.priorityNames;
    return Formatter::getProperty(name); // which throws
}

} // namespace Zyr
