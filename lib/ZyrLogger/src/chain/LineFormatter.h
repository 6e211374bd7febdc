#pragma once

#include "line/LinePatterns.h"

#include <Poco/PatternFormatter.h>

#include <memory>

namespace Zyr {

/// The chain's formatter: the patterns of POCO's, at a fraction of the time, with the time zone as it was at each
/// record, and safe to reconfigure while other threads format.
///
/// Every property change makes a new pattern; a record is formatted with one pattern from end to end. A value that is
/// refused leaves the current one, and getProperty() as it was.
class LineFormatter : public Poco::PatternFormatter
{
public:
    LineFormatter();

    void format(const Poco::Message& message, std::string& text) override;
    void setProperty(const std::string& name, const std::string& value) override;
    std::string getProperty(const std::string& name) const override;

    /// For those who format without the formatter, and may outlive it.
    std::shared_ptr<const LinePatterns> patterns() const { return shared; }

    void afterForkInChild() noexcept { shared->afterForkInChild(); }

private:
    const std::shared_ptr<LinePatterns> shared;
};

} // namespace Zyr
