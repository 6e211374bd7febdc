#pragma once

#include <ZyrTools/ConfigFileListener.h>

#include "file/FileBytes.h"
#include "settings/SettingsText.h"
#include "watch/Watcher.h"

#include <functional>

namespace Zyr {

/// The listener's loads. They are made between the watcher's begin() and end(), so never two at a time.
class Q_DECL_HIDDEN ConfigFileListener::Private final : public WatchClient
{
public:
    Private(ConfigFileListener* publicSide, const QString& filePath);

    bool start();
    void stop();
    void loadFailed(std::function<bool()> mendedCheck);

    std::optional<Time> look(bool touched) override;

    const QString name; ///< the path as a text

private:
    struct Outcome
    {
        SettingsMap before;
        SettingsMap after;
        bool returned = false; ///< and did not throw
    };

    std::shared_ptr<WatchClient> client() { return shared_from_this(); }
    void loadFirst();
    void reportUnreadable(const FileBytes& file, const QString& problem);
    void load(FileBytes file, bool firstLoad);
    Outcome callListener(const SettingsMap& values, bool firstLoad);
    bool isNews(const FileBytes& file) const;
    bool isMended() const;
    std::optional<Time> lookLater();

    /// Not to be touched after a callback of the listener, which may have deleted it.
    ConfigFileListener* const q;

    // Changed while the watcher's mutex is held, so that a forked child finds them whole.
    FileBytes seen;       ///< what the last load was made from, or what it wrote back
    bool inForce = false; ///< the last load took effect
    bool refused = false; ///< the listener said of the load under way that it did not
    std::function<bool()> mended;

    bool unreadableReported = false;
    bool postponed = false; ///< the file is to be loaded as soon as the system can
    Backoff lookAgain;      ///< for that, and for asking `mended`
    std::optional<Time> nextLook;
};

} // namespace Zyr
