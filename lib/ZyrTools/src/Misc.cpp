#include "ZyrTools/Misc.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QSettings>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <tuple>

using namespace Qt::StringLiterals;

namespace Zyr::Misc {

namespace {

/// A closed pipe as standard error must not end the application: the signal that writing raises is taken back.
void writeWithoutSignal(const QByteArray& line)
{
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    sigset_t pending;
    ::sigpending(&pending);
    sigset_t before;
    ::pthread_sigmask(SIG_BLOCK, &pipe, &before);
    std::ignore = ::write(STDERR_FILENO, line.constData(), size_t(line.size()));
    const timespec now = {};
    if (!::sigismember(&pending, SIGPIPE))
        ::sigtimedwait(&pipe, nullptr, &now);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

QVariant settingsText(const QVariant& value)
{
    const int type = value.typeId();
    return type == QMetaType::QStringList || type == QMetaType::QVariantList ? value.toStringList().join(u',') : value;
}

QVariant checkSettingsValue(QSettings& settings, const QString& key, bool& changed, const QVariant& defaultValue)
{
    if (settings.contains(key))
        return settingsText(settings.value(key));
    settings.setValue(key, defaultValue);
    changed = true;
    return defaultValue;
}

bool checkDirectory(const QString& dir)
{
    const QString path = dir.isEmpty() ? u"."_s : dir;
    return QDir().mkpath(path) &&
           ::faccessat(AT_FDCWD, QFile::encodeName(path).constData(), W_OK | X_OK, AT_EACCESS) == 0;
}

void reportProblem(const QString& subject, const QString& problem) noexcept
{
    try {
        QByteArray line = (subject + u": "_s + problem).toUtf8();
        line.replace('\n', ' ').replace('\r', ' ');
        writeWithoutSignal(line + '\n');
    } catch (const std::bad_alloc&) {
        // Nothing can be told without memory.
    }
}

} // namespace Zyr::Misc
