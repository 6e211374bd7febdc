#pragma once

#include "line/LinePatterns.h"

#include <Poco/PatternFormatter.h>

#include <memory>

namespace Zyr {

/// The chain's formatter: the patterns of POCO's, at a fraction of the time, with the time zone as it was at each
/// record, and safe to reconfigure while other threads format.
///
/// Every property change puts a new pattern in force; a record is formatted with one pattern from end to end. A value
/// that is refused leaves the old one in force and getProperty() as it was.
class LineFormatter : public Poco::PatternFormatter
{
public:
    LineFormatter();

    void format(const Poco::Message& message, std::string& text) override;
    void setProperty(const std::string& name, const std::string& value) override;
    std::string getProperty(const std::string& name) const override;

    /// For those who format without a formatter, and maybe for longer than there is one.
    std::shared_ptr<const LinePatterns> patterns() const { return shared; }

    void afterForkInChild() noexcept { shared->afterForkInChild(); }

private:
    const std::shared_ptr<LinePatterns> shared;
};

} // namespace Zyr
