// Whether the file holds what was logged: every record once, whole, and nothing else.

#pragma once

#include "Record.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Bench {

/// The end of the line that belongs to the number. Libraries that write numbers by the locale group their digits, which
/// the check has undone.
inline std::string expectedEnd(int number, const Record::Lines& lines)
{
    char text[160];
    std::snprintf(text, sizeof text, R"("level":"info","msg":"pump %d on line %s has a pressure of %g bar"})", number,
                  lines.of(number).toUtf8().constData(), Record::pressure(number));
    return text;
}

inline bool isJsonWithTime(const std::string& line)
{
    const QJsonObject record = QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
    const QString time = record[QLatin1String("timestamp")].toString();
    return record.size() == 3 && time.size() >= 28 && QDateTime::fromString(time, Qt::ISODateWithMs).isValid();
}

/// Throws when a record is missing, doubled, torn or foreign.
inline void checkRecords(const std::string& path, int records)
{
    const Record::Lines lines;
    std::vector<bool> seen(static_cast<std::size_t>(records));
    std::ifstream file(path);
    std::string line;
    std::string last;
    int found = 0;
    for (; std::getline(file, line); ++found) {
        if (found == 0 && !isJsonWithTime(line))
            throw std::runtime_error("the first line is no record: " + line);
        last = line;
        int number = -1;
        const std::size_t text = line.find("\"pump ");
        if (text != std::string::npos)
            line.erase(std::remove(line.begin() + std::ptrdiff_t(text), line.end(), ','), line.end());
        if (text == std::string::npos || std::sscanf(line.c_str() + text, "\"pump %d ", &number) != 1 || number < 0 ||
            number >= records || seen[static_cast<std::size_t>(number)] || !line.ends_with(expectedEnd(number, lines)))
            throw std::runtime_error("unexpected line: " + last);
        seen[static_cast<std::size_t>(number)] = true;
    }
    if (found != records)
        throw std::runtime_error(std::to_string(found) + " of " + std::to_string(records) + " records in the file");
    if (!isJsonWithTime(last))
        throw std::runtime_error("the last line is no record: " + last);
}

} // namespace Bench
