// Loads a listener's settings, and decides what counts as a change.

#include "listener/ConfigFileListener_p.h"

#include "settings/QtSettings.h"
#include "settings/WriteBack.h"

#include <ZyrTools/Misc.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QScopeGuard>
#include <QtCore/QSettings>

#include <utility>

using namespace Qt::StringLiterals;

namespace Zyr {

ConfigFileListener::Private::Private(ConfigFileListener* publicSide, const QString& filePath)
    : WatchClient(QFile::encodeName(filePath))
    , name(filePath)
    , q(publicSide)
{
    QtSettings::prepare();
}

bool ConfigFileListener::Private::start()
{
    Watcher& watcher = Watcher::instance();
    const auto self = client();
    const Watcher::Begin begun = watcher.begin(self);
    if (watcher.isForked()) {
        if (begun == Watcher::Begin::First) {
            bool failed = true;
            const auto release = qScopeGuard([&] { watcher.end(self, std::nullopt, failed); });
            loadFirst();
            failed = false;
        }
        return false;
    }

    QString problem;
    switch (begun) {
    case Watcher::Begin::Started:
        return true;
    case Watcher::Begin::Resumed:
        if (watcher.watch(self, problem)) {
            watcher.touch(self); // changes while it was not watched caused no event
            return true;
        }
        if (!problem.isEmpty())
            Misc::reportProblem(name, problem);
        return false;
    case Watcher::Begin::First:
    case Watcher::Begin::Again:
        break;
    }

    bool loaded = begun == Watcher::Begin::Again;
    const auto release = qScopeGuard([&] { watcher.end(self, nextLook, !loaded); });
    const QString directory = QFileInfo(name).path();
    const bool exists = Misc::checkDirectory(directory) || QFileInfo(directory).isDir();
    if (!loaded)
        loadFirst();
    loaded = true;
    bool watched = false;
    if (exists)
        watched = watcher.watch(self, problem);
    else if (begun == Watcher::Begin::First)
        problem = u"cannot be watched: its directory cannot be created"_s;
    // A change between the load and the watch caused no event.
    if (watched && needsLoad(readFile(path)))
        watcher.touch(self);
    if (!problem.isEmpty())
        Misc::reportProblem(name, problem);
    return watched;
}

void ConfigFileListener::Private::stop()
{
    Watcher::instance().stop(client());
}

void ConfigFileListener::Private::loadFailed(std::function<bool()> mendedCheck)
{
    Watcher& watcher = Watcher::instance();
    if (!watcher.isForked() && !watcher.isBusyHere(client()))
        return;
    watcher.publish([&] {
        refused = true;
        tookEffect = false;
        mended.swap(mendedCheck);
    });
}

void ConfigFileListener::Private::loadFirst()
{
    FileBytes file = readFile(path);
    unreadableReported = false;
    reportUnreadable(file, u"cannot be read, so defaults are used: "_s);
    lookAgain.reset();
    postponed = file.shortage;
    load(std::move(file), true);
}

std::optional<ConfigFileListener::Private::Time> ConfigFileListener::Private::look(bool touched)
{
    const QtSettings::Load scope;
    if (!scope.mayBegin())
        return std::nullopt;
    if (!touched && !postponed && !isMended())
        return lookLater();
    FileBytes file = readFile(path);
    reportUnreadable(file, u"cannot be read now, so what was loaded stays in force: "_s);
    if (file.shortage) {
        postponed = true;
        return lookLater();
    }
    if (touched) {
        if (!needsLoad(file))
            return nextLook;
        lookAgain.reset();
    } else if (file.state != FileBytes::State::Read) {
        if (std::exchange(postponed, false))
            return nextLook = std::nullopt; // the next change causes an event
        file = seen;                        // although the file is gone, load what was refused again
    }
    load(std::move(file), false);
    return nextLook;
}

/// Reports once, until the file has been readable again.
void ConfigFileListener::Private::reportUnreadable(const FileBytes& file, const QString& problem)
{
    if (file.state == FileBytes::State::Read)
        unreadableReported = false;
    else if (file.state == FileBytes::State::Unreadable && !std::exchange(unreadableReported, true))
        Misc::reportProblem(name, problem + file.reason);
}

std::optional<ConfigFileListener::Private::Time> ConfigFileListener::Private::lookLater()
{
    nextLook = lookAgain.next();
    return nextLook;
}

/// False if the file is missing or unreadable. A load that was not applied is repeated when the file has been touched,
/// even if its bytes are the same.
bool ConfigFileListener::Private::needsLoad(const FileBytes& file) const
{
    if (file.state != FileBytes::State::Read)
        return false;
    return seen.state == FileBytes::State::Unreadable || file.bytes != seen.bytes ||
           (!tookEffect && !(file.stamp == seen.stamp));
}

bool ConfigFileListener::Private::isMended() const
{
    try {
        return mended && mended();
    } catch (...) {
        return false; // called again later
    }
}

void ConfigFileListener::Private::load(FileBytes file, bool firstLoad)
{
    std::optional<ParsedSettings> parsed;
    if (file.state != FileBytes::State::Unreadable) {
        QString reason;
        parsed = parseSettings(file.bytes, reason);
        if (!parsed && !postponed)
            Misc::reportProblem(
                name,
                (firstLoad ? u"cannot be read now, so defaults are used: "_s : u"cannot be read now: "_s) + reason);
        postponed = !parsed;
        if (parsed && !parsed->wellFormed)
            Misc::reportProblem(name, u"is no well-formed settings file; what could be read is used"_s);
    }
    if (postponed) {
        if (!firstLoad) {
            lookLater();
            return;
        }
        file.state = FileBytes::State::Unreadable; // so that it is not written back
    }

    Watcher& watcher = Watcher::instance();
    std::function<bool()> outdated;
    watcher.publish([&] {
        seen = file;
        tookEffect = false;
        refused = false;
        outdated.swap(mended);
    });
    const Outcome outcome = callListener(parsed ? parsed->values : SettingsMap(), firstLoad);
    std::optional<FileBytes> written;
    if (outcome.returned && file.state != FileBytes::State::Unreadable)
        written = writeBack(path, file, outcome.before, outcome.after);
    watcher.publish([&] {
        tookEffect = outcome.returned && !refused;
        if (written)
            seen = *written;
    });
    nextLook.reset();
    if (mended || postponed)
        lookLater();
}

/// Calls the listener; returns the values before and after that.
ConfigFileListener::Private::Outcome ConfigFileListener::Private::callListener(const SettingsMap& values,
                                                                               bool firstLoad)
{
    MemorySettings memory(values);
    QSettings& settings = memory.settings();
    Outcome outcome;
    outcome.before = allValues(settings);
    QString reason;
    try {
        q->onConfigFileChanged(settings, firstLoad);
        outcome.returned = true;
    } catch (...) {
        reason = Misc::currentExceptionText();
    }
    while (!settings.group().isEmpty())
        settings.endGroup();
    outcome.after = allValues(settings);
    if (!outcome.returned)
        Misc::reportProblem(name, u"the settings have not been taken over: "_s + reason);
    return outcome;
}

} // namespace Zyr
