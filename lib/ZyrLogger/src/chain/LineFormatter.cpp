#include "LineFormatter.h"

namespace Zyr {

LineFormatter::LineFormatter()
    : formatter(new Poco::PatternFormatter)
{
}

void LineFormatter::format(const Poco::Message& message, std::string& text)
{
    inForce()->format(message, text);
}

void LineFormatter::setProperty(const std::string& name, const std::string& value)
{
    Formatter old = inForce();
    Formatter changed(new Poco::PatternFormatter);
    for (const std::string& property : {PROP_PATTERN, PROP_TIMES, PROP_PRIORITY_NAMES}) {
        if (const std::string kept = old->getProperty(property); !kept.empty() && property != name)
            changed->setProperty(property, kept);
    }
    changed->setProperty(name, value);

    const std::lock_guard lock(formatterMutex);
    formatter = changed;
}

std::string LineFormatter::getProperty(const std::string& name) const
{
    return inForce()->getProperty(name);
}

LineFormatter::Formatter LineFormatter::inForce() const
{
    const std::lock_guard lock(formatterMutex);
    return formatter;
}

} // namespace Zyr
