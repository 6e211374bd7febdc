#pragma once

#include <QtCore/QSettings>
#include <QtCore/QString>

#include <memory>

/// Makes QSettings safe to use on a thread of the library: Qt's static objects have to outlive the loads, and a fork
/// must not happen while that thread holds Qt's global lock, which the child could never release.
namespace Zyr::QtSettings {

/// To be called before the first load of the process.
void prepare();

/// Destroys under the lock that fork() takes.
struct Destroy
{
    void operator()(QSettings* settings) const;
};
using Object = std::unique_ptr<QSettings, Destroy>;

/// A QSettings object of an INI file. Qt takes its global lock to construct and to destroy it, and fork() waits for
/// that. It does not wait for what the object is used for: reading a value may call the application's message handler,
/// which may load settings itself or wait for a thread that does. So a fork may copy the lock of the object as taken,
/// and no child may use an object of the same file name.
Object open(const QString& file);

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
