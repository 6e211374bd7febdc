#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// A temporary directory, removed at the end; TMPDIR leads there too.
class Scratch
{
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const QByteArray& path() const { return directory; }
    /// Absolute.
    QByteArray path(const QByteArray& name) const { return directory + '/' + name; }

    /// Creates a directory, or empties it.
    void renew(const QByteArray& name) const;

    void write(const QByteArray& name, const QByteArray& bytes) const;
    QByteArray read(const QByteArray& name) const;

private:
    QByteArray directory;
};
