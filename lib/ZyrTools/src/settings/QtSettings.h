#pragma once

#include "base/Mutex.h"

/// Makes QSettings safe to use on a thread of the library: Qt's static objects have to outlive the loads, and a fork
/// must not happen while that thread holds Qt's lock, which the child could never release.
namespace Zyr::QtSettings {

/// To be called before the first load of the process.
void prepare();

/// To be held while a QSettings object is constructed or destroyed, which is when Qt takes its lock. fork() takes it.
Mutex& lifeMutex();

/// A load on the watcher's thread. The destruction of static objects waits for it before Qt's are destroyed.
class Load
{
public:
    Load();
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    /// False during the destruction of static objects: listeners may outlive them, QSettings does not work any more.
    bool mayBegin() const noexcept;
};

} // namespace Zyr::QtSettings
