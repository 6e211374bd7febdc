// The temporary directory of a fuzz target.

#include "Scratch.h"

#include "Check.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdlib>

#include <unistd.h>

Scratch::Scratch()
{
    const char* const place = std::getenv("TMPDIR");
    directory = QByteArray(place ? place : "/tmp") + "/fuzz-XXXXXX";
    check(::mkdtemp(directory.data()), "There is a scratch directory", directory);
    ::setenv("TMPDIR", directory.constData(), 1);
}

Scratch::~Scratch()
{
    QDir(QFile::decodeName(directory)).removeRecursively();
}

void Scratch::renew(const QByteArray& name) const
{
    QDir made(QFile::decodeName(path(name)));
    check(made.removeRecursively() && made.mkpath(QStringLiteral(".")), "The scratch directory can be written", name);
}

void Scratch::write(const QByteArray& name, const QByteArray& bytes) const
{
    QFile file(QFile::decodeName(path(name)));
    check(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "The scratch directory can be written",
          name);
}

QByteArray Scratch::read(const QByteArray& name) const
{
    QFile file(QFile::decodeName(path(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
