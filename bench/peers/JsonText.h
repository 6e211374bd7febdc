// A text from outside as it may stand between the quotes of a JSON line: what this library does with each record.

#pragma once

#include <QtCore/QString>

#include <string>

namespace Bench {

inline std::string jsonText(const QString& text)
{
    const std::string utf8 = text.toStdString();
    std::string escaped;
    escaped.reserve(utf8.size() + 8);
    for (const char character : utf8) {
        switch (character) {
        case '"':
        case '\\':
            escaped += '\\';
            escaped += character;
            break;
        case '\n':
            escaped += ' ';
            break;
        case '\r':
            break;
        default:
            escaped += character;
        }
    }
    return escaped;
}

} // namespace Bench
