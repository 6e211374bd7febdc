// INI files line by line, as QSettings reads them, so that comments and order survive a change.

#include "settings/IniText.h"

#include <QtCore/QByteArrayView>
#include <QtCore/QMap>

#include <vector>

namespace Zyr {

namespace {

constexpr QByteArrayView byteOrderMark("\xef\xbb\xbf");

struct Line
{
    qsizetype first; ///< its first character that is not blank
    qsizetype end;   ///< past its line end
    char kind;       ///< '[' section, '=' entry, ';' comment or blank line
};

bool isLineEnd(char character)
{
    return character == '\n' || character == '\r';
}

/// Past the next line end.
qsizetype pastLineEnd(QByteArrayView text, qsizetype at)
{
    while (at < text.size() && !isLineEnd(text[at]))
        ++at;
    if (text.sliced(at).startsWith("\r\n"))
        return at + 2;
    return qMin(at + 1, text.size());
}

/// Past an entry's line end. Quotation marks and backslashes continue an entry on the next line, as in QSettings.
qsizetype pastEntry(QByteArrayView text, qsizetype at)
{
    bool quoted = false;
    for (; at < text.size(); ++at) {
        const char character = text[at];
        if (character == '"')
            quoted = !quoted;
        else if (character == '\\')
            at += text.sliced(at + 1).startsWith("\r\n") || text.sliced(at + 1).startsWith("\n\r") ? 2 : 1;
        else if (!quoted && (isLineEnd(character) || character == ';'))
            return pastLineEnd(text, at);
    }
    return text.size();
}

std::vector<Line> splitLines(QByteArrayView text)
{
    std::vector<Line> lines;
    for (qsizetype at = text.startsWith(byteOrderMark) ? byteOrderMark.size() : 0; at < text.size();) {
        qsizetype first = at;
        while (first < text.size() && (text[first] == ' ' || text[first] == '\t'))
            ++first;
        const char character = first < text.size() ? text[first] : '\n';
        if (isLineEnd(character) || character == ';' || character == '#')
            lines.push_back({first, pastLineEnd(text, first), ';'});
        else
            lines.push_back({first, pastEntry(text, first), character == '[' ? '[' : '='});
        at = lines.back().end;
    }
    return lines;
}

/// The name in a section's line, in lower case where QSettings ignores the case. Entries before the first section
/// belong to "general".
QByteArray sectionName(QByteArrayView line)
{
    const qsizetype close = line.indexOf(']');
    const QByteArray name = line.sliced(1, (close < 0 ? line.size() : close) - 1).toByteArray().trimmed();
    const QByteArray lower = name.toLower();
    return lower == "general" || lower == "%general" ? lower : name;
}

struct Section
{
    QByteArray name;
    QByteArray header;
    QByteArray entries;
};

std::vector<Section> splitSections(QByteArrayView text, const QByteArray& lineEnd)
{
    std::vector<Section> sections;
    for (const Line& line : splitLines(text)) {
        const QByteArray content = text.sliced(line.first, line.end - line.first).toByteArray().trimmed() + lineEnd;
        if (line.kind == '[')
            sections.push_back({sectionName(content), content, {}});
        else if (line.kind == '=' && !sections.empty())
            sections.back().entries += content;
    }
    return sections;
}

} // namespace

QByteArray readableIni(const QByteArray& text)
{
    QByteArray result = text;
    for (const Line& line : splitLines(text)) {
        if (line.first < text.size() && text[line.first] == '#')
            result[line.first] = ';';
    }
    return result.startsWith(byteOrderMark) ? result.sliced(byteOrderMark.size()) : result;
}

QByteArray mergeIni(const QByteArray& text, const QByteArray& added)
{
    const QByteArray lineEnd = text.contains("\r\n") ? "\r\n" : "\n";
    QMap<QByteArray, qsizetype> sectionEnds;
    QByteArray current = "general";
    for (const Line& line : splitLines(text)) {
        if (line.kind == '[')
            current = sectionName(QByteArrayView(text).sliced(line.first, line.end - line.first));
        if (line.kind != ';')
            sectionEnds[current] = line.end;
    }

    QMap<qsizetype, QByteArray> insertions;
    QByteArray newSections;
    for (const Section& section : splitSections(added, lineEnd)) {
        const auto end = sectionEnds.constFind(section.name);
        if (end != sectionEnds.constEnd())
            insertions[*end] = section.entries;
        else
            newSections +=
                (text.isEmpty() && newSections.isEmpty() ? QByteArray() : lineEnd) + section.header + section.entries;
    }

    QByteArray result;
    qsizetype copied = 0;
    for (auto insertion = insertions.cbegin(); insertion != insertions.cend(); ++insertion) {
        result += QByteArrayView(text).sliced(copied, insertion.key() - copied);
        copied = insertion.key();
        if (!isLineEnd(result.back()))
            result += lineEnd;
        result += *insertion;
    }
    result += QByteArrayView(text).sliced(copied);
    if (!newSections.isEmpty() && !result.isEmpty() && !isLineEnd(result.back()))
        result += lineEnd;
    return result + newSections;
}

} // namespace Zyr
