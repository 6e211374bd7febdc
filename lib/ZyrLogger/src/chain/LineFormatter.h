#pragma once

#include <Poco/AutoPtr.h>
#include <Poco/PatternFormatter.h>

#include <mutex>

namespace Zyr {

/// The chain's formatter: POCO's pattern formatter, made safe to reconfigure while other threads format.
///
/// Every property change makes a new formatter and puts it in the place of the old one, which threads that are in it
/// finish with. A value that is refused leaves the old one in force.
class LineFormatter : public Poco::PatternFormatter
{
public:
    LineFormatter();

    void format(const Poco::Message& message, std::string& text) override;
    void setProperty(const std::string& name, const std::string& value) override;
    std::string getProperty(const std::string& name) const override;

private:
    using Formatter = Poco::AutoPtr<Poco::PatternFormatter>;

    Formatter inForce() const;

    mutable std::mutex formatterMutex;
    Formatter formatter;
};

} // namespace Zyr
