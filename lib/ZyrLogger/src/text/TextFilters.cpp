// The text filters of a logger, which search UTF-8 without converting it wherever that finds the same.

#include "text/TextFilters.h"

#include <algorithm>

namespace Zyr {

namespace {

bool isWellFormed(const QStringList& texts)
{
    return std::all_of(texts.begin(), texts.end(), [](const QString& text) { return text.isValidUtf16(); });
}

std::vector<std::string> toUtf8(const QStringList& texts)
{
    std::vector<std::string> result;
    for (const QString& text : texts)
        result.push_back(text.toStdString());
    return result;
}

bool containsAny(const QString& text, const QStringList& entries)
{
    return std::any_of(entries.begin(), entries.end(), [&](const QString& entry) { return text.contains(entry); });
}

bool containsAny(std::string_view text, const std::vector<std::string>& entries)
{
    return std::any_of(entries.begin(), entries.end(),
                       [&](const std::string& entry) { return text.find(entry) != text.npos; });
}

} // namespace

TextFilters::TextFilters(const QStringList& wantedEntries, const QStringList& unwantedEntries)
    : wanted(wantedEntries)
    , unwanted(unwantedEntries)
    , wellFormed(isWellFormed(wanted) && isWellFormed(unwanted))
    , wantedUtf8(toUtf8(wanted))
    , unwantedUtf8(toUtf8(unwanted))
{
}

bool TextFilters::pass(const QString& text) const
{
    return (wanted.isEmpty() || containsAny(text, wanted)) && !containsAny(text, unwanted);
}

bool TextFilters::pass(std::string_view text) const
{
    if (!wellFormed)
        return pass(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
    return (wanted.isEmpty() || containsAny(text, wantedUtf8)) && !containsAny(text, unwantedUtf8);
}

} // namespace Zyr
