// QSettings as a parser and serialiser of bytes. It never opens the watched file: it caches files by size and time
// stamp, so it could miss a change, and it would overwrite other processes' saves.

#include "settings/SettingsText.h"

#include "file/FileBytes.h"
#include "settings/IniText.h"
#include "system/Descriptor.h"
#include "system/HeldSignals.h"

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <atomic>
#include <cerrno>

#include <sys/mman.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace Zyr {

namespace {

constexpr unsigned noExecution = 8; // MFD_NOEXEC_SEAL

Descriptor memoryFile(const QByteArray& bytes)
{
    // Hardened kernels refuse a memory file that could be executed; older ones do not know that flag.
    Descriptor file(::memfd_create("settings", MFD_CLOEXEC | noExecution));
    if (!file && errno == EINVAL)
        file = Descriptor(::memfd_create("settings", MFD_CLOEXEC));
    return file && writeAll(file.get(), bytes) ? std::move(file) : Descriptor();
}

/// QSettings would write keys read from "=value" or below "[section/]" as other keys.
bool isWritable(const QString& key)
{
    return !key.isEmpty() && !key.startsWith(u'/') && !key.endsWith(u'/') && !key.contains(u"//"_s);
}

/// A name under which no file can exist. Unique, as QSettings objects of the same name share their values.
QString uniqueName()
{
    static std::atomic<unsigned> last = 0;
    return u"/dev/null/settings-%1.ini"_s.arg(++last);
}

} // namespace

MemorySettings::MemorySettings(const SettingsMap& values)
    : object(QtSettings::open(uniqueName()))
{
    for (auto value = values.cbegin(); value != values.cend(); ++value)
        object->setValue(value.key(), *value);
}

MemorySettings::~MemorySettings()
{
    object->clear(); // otherwise QSettings tries to save it
}

SettingsMap allValues(const QSettings& settings)
{
    SettingsMap values;
    const QStringList keys = settings.allKeys();
    for (const QString& key : keys) {
        if (isWritable(key))
            values.insert(key, settings.value(key));
    }
    return values;
}

std::optional<ParsedSettings> parseSettings(const QByteArray& bytes, QString& reason)
{
    const HeldSignals held; // Qt may write a warning about a value to standard error
    const auto failed = [&](const QString& why) {
        reason = u"the system gives no memory file: "_s + why;
        return std::nullopt;
    };
    const Descriptor file = memoryFile(readableIni(bytes));
    // QSettings caches by name, size and time stamp, and the descriptor's number is reused: so the time is unique.
    static std::atomic<int> lastTime = 0;
    const timespec time = {++lastTime, 0};
    const timespec times[] = {time, time};
    if (!file || ::futimens(file.get(), times) != 0)
        return failed(errorText(errno));

    // By the process's number: a forked child may have closed the descriptor that its parent was reading, and get the
    // same number here.
    const QString name = QFile::symLinkTarget(u"/proc/self"_s) + u"/fd/%1"_s.arg(file.get());
    if (!QFile::exists(name))
        return failed(u"there is no /proc"_s);
    const auto settings = QtSettings::open(name);
    ParsedSettings result{allValues(*settings)};
    // After reading the values: QSettings parses a section when its keys are read.
    const QSettings::Status status = settings->status();
    if (status == QSettings::AccessError)
        return failed(u"it cannot be read"_s);
    result.wellFormed = status == QSettings::NoError;
    return result;
}

std::optional<QByteArray> serialiseSettings(const QByteArray& base, const SettingsMap& values,
                                            const QStringList& removed, const QString& directory, QString& reason)
{
    const HeldSignals held;
    const auto failed = [&] {
        reason = u"no temporary file can be made"_s + (held.isRaised(SIGXFSZ) ? u": "_s + errorText(EFBIG) : QString());
        return std::nullopt;
    };
    // No memory file: QSettings saves by rename, and would create a file under the name that the link in /proc shows.
    QTemporaryDir temporary;
    if (!temporary.isValid() && !directory.isEmpty())
        temporary = QTemporaryDir(directory + "/.settings-XXXXXX"_L1);
    QFile file(temporary.filePath(u"settings.ini"_s));
    const QByteArray text = readableIni(base);
    if (!temporary.isValid() || !file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) ||
        file.write(text) != text.size())
        return failed();
    file.close();
    {
        const auto settings = QtSettings::open(file.fileName());
        for (const QString& key : removed)
            settings->remove(key);
        for (auto value = values.cbegin(); value != values.cend(); ++value) {
            if (!settings->contains(value.key()) || settings->value(value.key()) != *value)
                settings->setValue(value.key(), *value);
        }
        settings->sync();
        if (settings->status() == QSettings::AccessError)
            return failed();
    }
    const FileBytes written = readFile(QFile::encodeName(file.fileName()));
    return written.state == FileBytes::State::Read ? std::optional(written.bytes) : failed();
}

} // namespace Zyr
