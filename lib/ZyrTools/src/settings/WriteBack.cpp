// Finds what a listener changed in its settings, and brings the file up to that.

#include "settings/WriteBack.h"

#include "file/FileSave.h"
#include "settings/IniText.h"
#include "system/HeldSignals.h"
#include "system/TrustedPath.h"

#include <ZyrTools/Misc.h>

#include <QtCore/QFile>

#include <algorithm>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace Zyr {

namespace {

struct Changes
{
    SettingsMap set;
    QStringList removed;
};

Changes compare(const SettingsMap& before, const SettingsMap& after)
{
    Changes changes;
    for (auto value = after.cbegin(); value != after.cend(); ++value) {
        const auto old = before.constFind(value.key());
        if (old == before.cend() || *old != *value)
            changes.set.insert(value.key(), *value);
    }
    for (auto value = before.cbegin(); value != before.cend(); ++value) {
        if (!after.contains(value.key()))
            changes.removed.append(value.key());
    }
    return changes;
}

/// Whether only root and this process's user can rename and remove files that this process creates in a directory.
bool isSafe(int directory)
{
    struct stat status = {};
    return ::fstat(directory, &status) == 0 && isTrustedOwner(status.st_uid) &&
           ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0 || (status.st_mode & S_ISVTX) != 0);
}

std::optional<SettingsMap> valuesOf(const QByteArray& text, QString& problem)
{
    auto parsed = parseSettings(text, problem);
    return parsed ? std::optional(std::move(parsed->values)) : std::nullopt;
}

/// The text with the changes. Nothing, and the problem, if that would change other values too.
std::optional<QByteArray> changedText(const QByteArray& text, Changes changes, const SettingsMap& before,
                                      const SettingsMap& after, const QString& directory, QString& problem)
{
    auto lines = serialiseSettings({}, changes.set, {}, directory, problem);
    const auto added = lines ? valuesOf(*lines, problem) : std::nullopt;
    if (!added)
        return std::nullopt;

    // Not changed if the file has the same text already: the listener only set it as another type.
    const auto unchanged = changes.set.removeIf([&](SettingsMap::iterator value) {
        return before.contains(value.key()) && before.value(value.key()) == added->value(value.key());
    });
    const bool onlyAdded =
        changes.removed.isEmpty() && std::none_of(changes.set.keyBegin(), changes.set.keyEnd(),
                                                  [&](const QString& key) { return before.contains(key); });
    if (!onlyAdded)
        return serialiseSettings(text, after, changes.removed, directory, problem);
    if (changes.set.isEmpty())
        return text;

    if (unchanged > 0)
        lines = serialiseSettings({}, changes.set, {}, directory, problem);
    if (!lines)
        return std::nullopt;
    const QByteArray merged = mergeIni(text, *lines);
    SettingsMap expected = before;
    for (auto key = changes.set.keyBegin(); key != changes.set.keyEnd(); ++key)
        expected.insert(*key, added->value(*key));
    const auto values = valuesOf(merged, problem);
    if (!values)
        return std::nullopt;
    if (*values != expected) {
        problem = u"they would change others, check its quotation marks"_s;
        return std::nullopt;
    }
    return merged;
}

} // namespace

std::optional<FileBytes> writeBack(const QByteArray& path, const FileBytes& loaded, const SettingsMap& before,
                                   const SettingsMap& after)
{
    const Changes changes = compare(before, after);
    TrustedPath target;
    if ((changes.set.isEmpty() && changes.removed.isEmpty()) || target.find(path.constData()) || !maySave(target))
        return std::nullopt;

    QString problem;
    std::optional<FileBytes> saved;
    // If /tmp takes no directory. Only where it is safe: a user who could replace it there could redirect our writes.
    const QString directory = isSafe(target.directory()) ? u"/proc/self/fd/%1"_s.arg(target.directory()) : QString();
    const auto text = changedText(loaded.bytes, changes, before, after, directory, problem);
    if (text) {
        problem.clear();
        const HeldSignals held;
        if (*text != loaded.bytes)
            saved = saveFile(target, loaded, *text, problem);
    }
    if (!problem.isEmpty())
        Misc::reportProblem(QFile::decodeName(path), u"missing values cannot be added: "_s + problem);
    return saved;
}

} // namespace Zyr
