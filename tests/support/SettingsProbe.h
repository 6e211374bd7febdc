#pragma once

#include "TestPlace.h"

#include <ZyrTools/ConfigFileListener.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFile>
#include <QtCore/QSettings>
#include <QtCore/QTemporaryFile>
#include <QtTest/QTest>

#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>

#include <unistd.h>

/// The settings file of a probe that is given no other name.
inline const QString probeFile = QStringLiteral("probe.ini");

/// Keeps the value "v" of the section "S" of every load.
class SettingsProbe : public Zyr::ConfigFileListener
{
public:
    using Action = std::function<void(SettingsProbe&, QSettings&, bool)>;

    /// `onLoad` does more in the callback.
    explicit SettingsProbe(Action onLoad = {}, const QString& name = probeFile)
        : ConfigFileListener(QStringLiteral("_Log"), name)
        , action(std::move(onLoad))
    {
    }
    ~SettingsProbe() override { stopConfigFileWatcher(); }

    bool onConfigFileChanged(QSettings& settings, bool first) override
    {
        std::unique_lock lock(mutex);
        values += (first ? "first " : "|") + settings.value(QStringLiteral("S/v")).toString().toStdString();
        lock.unlock();
        if (action)
            action(*this, settings, first);
        return false;
    }

    /// Like "first 1|2|3".
    QByteArray loads() const
    {
        const std::lock_guard lock(mutex);
        return QByteArray::fromStdString(values);
    }

    using ConfigFileListener::configFileLoadFailed;

private:
    mutable std::mutex mutex;
    std::string values; // not Qt's: ThreadSanitizer does not see how those are shared
    const Action action;
};

/// An action that sets "added" in the section "S" where it is missing.
inline void addKey(SettingsProbe&, QSettings& settings, bool)
{
    bool changed = false;
    Zyr::Misc::checkSettingsValue(settings, QStringLiteral("S/added"), changed, 1);
}

/// Runs a shell's `script` in `place`; `put file value` there writes a file in place, `link target name` swaps a link.
inline void shell(const TestPlace& place, const QByteArray& script)
{
    const QByteArray prelude = "put() { printf '[S]\\nv=%s\\n' \"$2\" > \"$1\"; }\n"
                               "link() { ln -s \"$1\" new.link && mv -T new.link \"$2\"; }\nset -e; cd ";
    QCOMPARE(std::system((prelude + QFile::encodeName(place.path({})) + '\n' + script).constData()), 0);
}

/// The same, and returns when the watcher's thread has served all of it.
inline void change(const TestPlace& place, const QByteArray& script)
{
    shell(place, script);
    // The thread may serve two listeners in one turn and in any order: the second change comes a turn later.
    SettingsProbe clock({}, QStringLiteral("clock.ini"));
    clock.startConfigFileWatcher();
    for (const QByteArray value : {"1", "2"}) {
        shell(place, "put clock.ini " + value);
        QVERIFY(QTest::qWaitFor([&] { return clock.loads().endsWith(value); }));
    }
    shell(place, "rm clock.ini");
}

/// What is written to standard error during `action`.
inline QByteArray errorsOf(const std::function<void()>& action)
{
    QTemporaryFile file;
    const int saved = file.open() ? ::dup(STDERR_FILENO) : -1;
    ::dup2(file.handle(), STDERR_FILENO);
    action();
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    file.seek(0);
    return file.readAll();
}
