#include "TestPlace.h"

#include <QtCore/QFile>
#include <QtCore/QSaveFile>

namespace {

const char* const logVariable = "QUADEL_CURRENT_LOG_LOCATION";
const char* const configVariable = "QUADEL_CURRENT_CONFIG_LOCATION";

void save(QFileDevice& file, const QByteArray& bytes)
{
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
}

} // namespace

TestPlace::TestPlace()
{
    if (!directory.isValid())
        qFatal("no temporary directory: %s", qPrintable(directory.errorString()));
    qputenv(logVariable, QFile::encodeName(directory.path()));
    qputenv(configVariable, QFile::encodeName(directory.path()));
}

TestPlace::~TestPlace()
{
    qunsetenv(logVariable);
    qunsetenv(configVariable);
}

QString TestPlace::path(const QString& name) const
{
    return directory.filePath(name);
}

QByteArray TestPlace::read(const QString& name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList TestPlace::lines(const QString& name) const
{
    QStringList lines = QString::fromUtf8(read(name)).split(u'\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

void TestPlace::write(const QString& name, const QByteArray& bytes) const
{
    QFile file(path(name));
    save(file, bytes);
}

void TestPlace::replace(const QString& name, const QByteArray& bytes) const
{
    QSaveFile file(path(name));
    save(file, bytes);
    if (!file.commit())
        qFatal("cannot replace %s", qPrintable(file.fileName()));
}

QByteArray settingsFile(const QByteArray& loggerKeys, const QByteArray& channelKeys)
{
    // QSettings keeps the last of two equal keys, so that a test's own values win.
    return "[Logger]\nlevel=trace\n" + loggerKeys + "\n[LoggerFileChannel]\npattern=%p %t\nrotation=never\n" +
           channelKeys + '\n';
}
