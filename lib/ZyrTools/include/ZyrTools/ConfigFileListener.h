#pragma once

#include <ZyrTools/Export.h>

#include <QtCore/QString>

#include <functional>
#include <memory>

QT_BEGIN_NAMESPACE
class QSettings;
QT_END_NAMESPACE

namespace Zyr {

/// Loads a settings file in INI form, watches it, and loads it again after every change.
///
/// \code
/// class PumpSettings : public Zyr::ConfigFileListener
/// {
/// public:
///     PumpSettings() : ConfigFileListener(u"_Pump"_s, u""_s) { startConfigFileWatcher(); }
///     ~PumpSettings() override { stopConfigFileWatcher(); }
///
///     bool onConfigFileChanged(QSettings& settings, bool) override
///     {
///         const bool isMissing = !settings.contains(u"speed"_s);
///         if (isMissing)
///             settings.setValue(u"speed"_s, 100);
///         speed = settings.value(u"speed"_s).toInt();
///         return isMissing;
///     }
///     std::atomic<int> speed = 0; // which other threads read
/// };
/// \endcode
///
/// Derive from it, take the values over in onConfigFileChanged(), and call startConfigFileWatcher() when the object is
/// complete. One thread serves all listeners of the process; it needs no application object, has every signal blocked
/// and sleeps while no file changes. In a forked child nothing is watched.
///
/// A change is a change of the file's bytes: a file rewritten in place, replaced by rename, deleted and created again,
/// or reached through a symbolic link whose target is swapped is noticed, and the same bytes written again are no
/// change. The thread waits until a burst of writes has settled, so that one change causes one load. A file that is
/// missing or unreadable causes no load until it can be read again.
class ZYRTOOLS_EXPORT ConfigFileListener
{
public:
    /// Finds the settings file; nothing is read or created yet.
    ///
    /// The directory is the first non-empty one of: the environment variable QUADEL_CURRENT_CONFIG_LOCATION, the
    /// application object's dynamic property of that name, the generic configuration location, the program's directory.
    /// The file is `fileName` unchanged, an absolute one wherever it lies; an empty one stands for the application's
    /// name (or "Quadel"), then `suffix`, then ".ini".
    ConfigFileListener(const QString& suffix, const QString& fileName);
    ConfigFileListener(const ConfigFileListener&) = delete;
    ConfigFileListener& operator=(const ConfigFileListener&) = delete;

    /// Stops watching. A derived class whose onConfigFileChanged() uses its own members must call
    /// stopConfigFileWatcher() at the beginning of its own destructor.
    virtual ~ConfigFileListener();

    /// Called with the loaded settings: with `firstLoad` true on the thread that starts the watcher, with false on the
    /// watcher's thread after each change. Never called twice at a time for one listener. While it runs on the
    /// watcher's thread, no other listener is served.
    ///
    /// Keys that are set here and were missing are added to the file afterwards; its comments and its order stay.
    /// Where keys are changed or removed too, the file is written anew. A save by another process in between always
    /// stays. `settings` lives only during the call and its fileName() is no path on the disk: see
    /// configFilePath(). An exception that leaves it is reported on standard error, nothing is written back, and
    /// watching goes on.
    ///
    /// @return whether keys were missing and have been set; the watcher does not need it.
    virtual bool onConfigFileChanged(QSettings& settings, bool firstLoad) = 0;

    /// Creates the file's directory, loads the settings on this thread, and then watches the file. A missing or
    /// unreadable file is loaded as an empty one. A second start returns true and does nothing; the first load may then
    /// still be under way on another thread.
    ///
    /// @return whether the file is being watched. If not, the load has been made all the same, and standard error says
    /// why, except in a forked child or when stopped meanwhile. The next start makes no load: it tries to watch again.
    /// If the reason was that no thread could be created, the start of any other listener tries that too. As soon as
    /// the file is watched, a change made in between is loaded on the watcher's thread.
    bool startConfigFileWatcher();

    /// Stops watching. Returns when no callback is running or can start any more; from inside the callback it does not
    /// wait for that one, nor for the callback of another listener that is itself waiting for that one to end. Hold no
    /// lock that the callback takes. May be called without a start, and more than once; the next start makes a first
    /// load.
    void stopConfigFileWatcher();

    /// Absolute path of the settings file.
    const QString& configFilePath() const noexcept;

protected:
    /// Marks the current load as not applied, so that the next touch of the file loads it again even when its bytes are
    /// the same. Only from onConfigFileChanged(); elsewhere it does nothing. An exception that leaves
    /// onConfigFileChanged() has the same effect.
    ///
    /// The watcher's thread calls `mended`, if given, after one second and then less often, up to every 30 seconds,
    /// until the next load, and loads again as soon as it returns true. An exception counts as false.
    void configFileLoadFailed(std::function<bool()> mended = {});

private:
    class Private;
    const std::shared_ptr<Private> d; ///< shared with the watcher, which may be busy when this object goes
};

} // namespace Zyr
