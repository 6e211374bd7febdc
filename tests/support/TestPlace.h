#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

/// A temporary directory that log and settings files of every logger made meanwhile go to.
class TestPlace
{
public:
    TestPlace();
    ~TestPlace();
    TestPlace(const TestPlace&) = delete;
    TestPlace& operator=(const TestPlace&) = delete;

    QString path(const QString& name) const;

    /// Empty when the file is not there.
    QByteArray read(const QString& name) const;

    /// Without line ends.
    QStringList lines(const QString& name) const;

    /// In place, as a shell's redirection does.
    void write(const QString& name, const QByteArray& bytes) const;

    /// By a temporary file and a rename, as editors do.
    void replace(const QString& name, const QByteArray& bytes) const;

private:
    QTemporaryDir directory;
};

/// A settings file of which the given keys differ from what a test wants by default: plain text lines, no rotation.
/// `loggerKeys` and `channelKeys` are lines "key=value".
QByteArray settingsFile(const QByteArray& loggerKeys = {}, const QByteArray& channelKeys = {});
