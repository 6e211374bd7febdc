#pragma once

#include <mutex>

/// What QSettings asks of a library that loads settings on a thread of its own: Qt's static objects have to outlive the
/// loads, and a fork must not copy Qt's lock while that thread holds it.
namespace Zyr::QtSettings {

/// Before the first load of the process.
void prepare();

/// To be held while a QSettings object is made and while it goes, which is when Qt takes its lock.
std::mutex& lifeMutex();

/// A load on the watcher's thread. The end of the process, which comes with its static objects and after the end of
/// every listener that is one of them, waits for it.
class Load
{
public:
    Load();
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    /// False when the process is ending: listeners that nobody destroys are still there, but QSettings is not.
    bool mayBegin() const noexcept;
};

} // namespace Zyr::QtSettings
