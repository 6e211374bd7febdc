#pragma once

#include <ZyrTools/ConfigFileListener.h>

#include "file/FileBytes.h"
#include "settings/SettingsText.h"
#include "watch/Watcher.h"

#include <functional>

namespace Zyr {

/// Loads the settings, only between the watcher's begin() and end() or in look(), so never twice at a time.
class Q_DECL_HIDDEN ConfigFileListener::Private final : public WatchClient
{
public:
    Private(ConfigFileListener* publicSide, const QString& filePath);

    bool start();
    void stop();
    void loadFailed(std::function<bool()> mendedCheck);

    std::optional<Time> look(bool touched) override;

    const QString name; ///< the path, for reports

private:
    struct Outcome
    {
        SettingsMap before;
        SettingsMap after;
        bool returned = false; ///< false: the listener threw
    };

    std::shared_ptr<WatchClient> client() { return shared_from_this(); }
    void loadFirst();
    void reportUnreadable(const FileBytes& file, const QString& problem);
    void load(FileBytes file, bool firstLoad);
    Outcome callListener(const SettingsMap& values, bool firstLoad);
    bool needsLoad(const FileBytes& file) const;
    bool isMended() const;
    std::optional<Time> lookLater();

    /// May dangle after a callback, which may delete the listener.
    ConfigFileListener* const q;

    // Changed only under the watcher's mutex, which fork() takes: a child never finds them half changed.
    FileBytes seen;          ///< the content of the last load, or what it wrote back
    bool tookEffect = false; ///< the last load was applied
    bool refused = false;    ///< loadFailed() was called during the current load
    std::function<bool()> mended;

    bool unreadableReported = false;
    bool postponed = false; ///< the load waits until the system has descriptors and memory
    Backoff lookAgain;      ///< when to retry that, and to call `mended`
    std::optional<Time> nextLook;
};

} // namespace Zyr
