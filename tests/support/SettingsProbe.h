#pragma once

#include "TestPlace.h"

#include <ZyrTools/ConfigFileListener.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QSettings>
#include <QtCore/QStringList>
#include <QtTest/QTest>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// The settings file of a probe that is given no other name.
inline const QString probeFile = QStringLiteral("probe.ini");

/// Keeps the value "v" of the section "S" of every load, with "first " in front where it was one.
class SettingsProbe : public Zyr::ConfigFileListener
{
public:
    using Action = std::function<void(SettingsProbe&, QSettings&, bool)>;

    /// `action` does more in the callback.
    explicit SettingsProbe(Action onLoad = {}, const QString& name = probeFile)
        : ConfigFileListener({}, name)
        , action(std::move(onLoad))
    {
    }
    ~SettingsProbe() override { stopConfigFileWatcher(); }

    bool onConfigFileChanged(QSettings& settings, bool first) override
    {
        {
            const std::lock_guard lock(mutex);
            values.push_back((first ? "first " : "") + settings.value(QStringLiteral("S/v")).toString().toStdString());
        }
        if (action)
            action(*this, settings, first);
        return false;
    }

    QStringList loads() const
    {
        const std::lock_guard lock(mutex);
        QStringList list;
        for (const std::string& value : values)
            list.append(QString::fromStdString(value));
        return list;
    }

    using ConfigFileListener::configFileLoadFailed;

private:
    mutable std::mutex mutex;
    std::vector<std::string> values; // not Qt's: ThreadSanitizer does not see how those are shared
    const Action action;
};

/// An action that sets "added" in the section "S" where it is missing.
inline void addKey(SettingsProbe&, QSettings& settings, bool)
{
    bool changed = false;
    Zyr::Misc::checkSettingsValue(settings, QStringLiteral("S/added"), changed, 1);
}

/// Returns when the watcher's thread has served everything that happened before in `place`.
inline void letWatcherCatchUp(const TestPlace& place)
{
    // The thread serves in order of time and may serve two listeners in one turn: the second change comes a turn later.
    const QString name = QStringLiteral("clock.ini");
    SettingsProbe clock({}, name);
    QVERIFY(clock.startConfigFileWatcher());
    for (const QByteArray value : {"1", "2"}) {
        const auto before = clock.loads().size();
        place.write(name, "[S]\nv=" + value);
        QTRY_VERIFY(clock.loads().size() > before);
    }
    QFile::remove(place.path(name));
}

/// Runs a shell's `script` in `place`; `put file text` there writes a file in place, `link target name` swaps a link.
inline void shell(const TestPlace& place, const QByteArray& script)
{
    const QByteArray prelude = "put() { printf '[S]\\nv=%s\\n' \"$2\" > \"$1\"; }\n"
                               "link() { ln -s \"$1\" \"$2.new\" && mv -T \"$2.new\" \"$2\"; }\nset -e; cd ";
    QCOMPARE(std::system((prelude + QFile::encodeName(place.path({})) + '\n' + script).constData()), 0);
}

/// All that lies in `place`.
inline QStringList entries(const TestPlace& place)
{
    return QDir(place.path({})).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

/// What is written to standard error while it lives.
class ErrorText
{
public:
    explicit ErrorText(const TestPlace& place)
        : where(place)
        , saved(::dup(STDERR_FILENO))
    {
        const QByteArray path = QFile::encodeName(place.path(name));
        const int target = ::open(path.constData(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND, 0600);
        ::dup2(target, STDERR_FILENO);
        ::close(target);
    }
    ~ErrorText()
    {
        ::dup2(saved, STDERR_FILENO);
        ::close(saved);
    }
    ErrorText(const ErrorText&) = delete;
    ErrorText& operator=(const ErrorText&) = delete;

    QByteArray read() const { return where.read(name); }

private:
    static inline const QString name = QStringLiteral("stderr");

    const TestPlace& where;
    const int saved;
};
