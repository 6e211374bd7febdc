// A logger's settings file with any content: what is read from it, and what it becomes when the keys that it lacks are
// added. Nothing that was there changes, and what was added is found again.

#include "Check.h"
#include "Confinement.h"
#include "Scratch.h"

#include "file/FileBytes.h"
#include "settings/SettingsKeys.h"
#include "settings/SettingsText.h"
#include "settings/WriteBack.h"

#include <ZyrTools/Misc.h>

#include <QtCore/QSettings>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;
using Zyr::SettingsMap;

namespace {

const QByteArray fileName = "settings.ini";

SettingsMap defaults()
{
    SettingsMap values{{u"Logger/level"_s, u"information"_s},
                       {u"Logger/textFilters"_s, u""_s},
                       {u"Logger/checkRepeatedMsg"_s, false},
                       {u"LoggerFileChannel/-path"_s, u"/var/log/app.log"_s}};
    const auto insert = [&](const Zyr::ChainKey& key) {
        values.insert(u"LoggerFileChannel/"_s + key.name, key.defaultVariant());
    };
    std::ranges::for_each(Zyr::ChainKeys::fileChannel, insert);
    std::ranges::for_each(Zyr::ChainKeys::formatter, insert);
    return values;
}

struct Load
{
    SettingsMap values;
    bool keysAdded = false;
    bool written = false;
};

/// As the watcher loads the file for a listener that adds what is missing.
Load load(const Scratch& scratch)
{
    static const SettingsMap wanted = defaults();
    const QByteArray path = scratch.path(fileName);
    const Zyr::FileBytes file = Zyr::readFile(path);
    QString problem;
    const auto parsed = Zyr::parseSettings(file.bytes, problem);
    check(file.state == Zyr::FileBytes::State::Read && parsed, "The file is read");
    Zyr::MemorySettings memory(parsed->values);
    Load result{Zyr::allValues(memory.settings())};
    check(result.values == parsed->values, "The listener gets the values of the file");
    for (auto value = wanted.cbegin(); value != wanted.cend(); ++value)
        Zyr::Misc::checkSettingsValue(memory.settings(), value.key(), result.keysAdded, *value);
    result.written = Zyr::writeBack(path, file, result.values, Zyr::allValues(memory.settings())).has_value();
    return result;
}

/// With their line ends.
std::vector<QByteArray> linesOf(const QByteArray& text)
{
    std::vector<QByteArray> lines(1);
    for (const char character : text) {
        lines.back() += character;
        if (character == '\n' || character == '\r')
            lines.emplace_back();
    }
    return lines;
}

/// Whether `after` is `before` with lines inserted. The last one may have got its end.
bool holdsLines(const QByteArray& before, const QByteArray& after)
{
    const std::vector<QByteArray> old = linesOf(before);
    std::size_t found = 0;
    for (const QByteArray& line : linesOf(after)) {
        const bool isEnded = found + 1 == old.size() && line.startsWith(old[found]) &&
                             (line.size() == old[found].size() || line.mid(old[found].size()).trimmed().isEmpty());
        if (found < old.size() && (line == old[found] || isEnded))
            ++found;
    }
    return found == old.size();
}

bool isLineEnd(char character)
{
    return character == '\n' || character == '\r';
}

/// Whether what stands behind the text would belong to its last entry, as QSettings reads it: a quotation is open, or a
/// backslash takes the last line end.
bool isOpenAtEnd(const QByteArray& text)
{
    bool quoted = false;
    bool begun = false; // an entry or a section
    for (qsizetype at = text.startsWith("\xef\xbb\xbf") ? 3 : 0; at < text.size(); ++at) {
        const char character = text[at];
        if ((character == ';' && !quoted) || (character == '#' && !begun)) {
            while (at < text.size() && !isLineEnd(text[at]))
                ++at;
            begun = false;
        } else if (character == '"') {
            quoted = !quoted;
            begun = true;
        } else if (character == '\\') {
            const QByteArray taken = text.mid(at + 1, 2);
            at += taken == "\r\n" || taken == "\n\r" ? 2 : 1;
            if (at >= text.size() || (at == text.size() - 1 && isLineEnd(text[at])))
                return true;
            begun = true;
        } else if (isLineEnd(character) && !quoted) {
            begun = false;
        } else if (character != ' ' && character != '\t') {
            begun = true;
        }
    }
    return quoted;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Scratch scratch;
    const Confinement confinement(scratch.path());
    const QByteArray text(reinterpret_cast<const char*>(data), qsizetype(size));
    scratch.write(fileName, text);
    const Load first = load(scratch);
    const QByteArray completed = scratch.read(fileName);
    check(holdsLines(text, completed), "Every line of the file stays, in its order", completed);
    if (!first.written) {
        check(completed == text, "What is not written back has not changed", completed);
        check(!first.keysAdded || isOpenAtEnd(text), "What is missing is added", text);
        return 0;
    }

    const Load second = load(scratch);
    checkEqual(scratch.read(fileName), completed, "A second load writes nothing");
    check(!second.keysAdded && !second.written, "A second load adds nothing", completed);
    SettingsMap kept = second.values;
    SettingsMap added;
    for (auto value = second.values.cbegin(); value != second.values.cend(); ++value) {
        if (!first.values.contains(value.key()))
            added.insert(value.key(), kept.take(value.key()));
    }
    check(kept == first.values, "The values that were there are read as before", completed);
    const SettingsMap wanted = defaults();
    for (auto value = added.cbegin(); value != added.cend(); ++value)
        check(wanted.contains(value.key()) &&
                  Zyr::Misc::settingsText(*value).toString() == wanted[value.key()].toString(),
              "What was added is read as it was meant", completed);
    return 0;
}
