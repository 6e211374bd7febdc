#pragma once

#include <QtCore/QStringList>

#include <string>
#include <string_view>
#include <vector>

namespace Zyr {

/// Which texts become records: those that contain one of the wanted entries, if there are any, and none of the unwanted
/// ones. Case-sensitive; an empty entry is in every text.
class TextFilters
{
public:
    TextFilters(const QStringList& wantedEntries, const QStringList& unwantedEntries);

    bool isEmpty() const noexcept { return wanted.isEmpty() && unwanted.isEmpty(); }

    bool pass(const QString& text) const;
    /// The same for valid UTF-8.
    bool pass(std::string_view text) const;

private:
    QStringList wanted;
    QStringList unwanted;
    bool wellFormed; ///< no entry has a lone surrogate, which could match half a character in UTF-16 but not in UTF-8
    std::vector<std::string> wantedUtf8;
    std::vector<std::string> unwantedUtf8;
};

} // namespace Zyr
