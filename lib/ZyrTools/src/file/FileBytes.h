#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

struct stat;

namespace Zyr {

class Descriptor;

/// Which file it was and when it was last touched.
struct FileStamp
{
    quint64 device = 0;
    quint64 inode = 0;
    qint64 modified = 0; ///< nanoseconds
    qint64 changed = 0;  ///< nanoseconds

    static FileStamp of(const struct stat& status);
    bool operator==(const FileStamp&) const = default;
};

/// A file's content as one reading found it.
struct FileBytes
{
    enum class State { Missing, Unreadable, Read };

    State state = State::Missing;
    QByteArray bytes;
    FileStamp stamp;
    QString reason;        ///< why it is unreadable
    bool shortage = false; ///< unreadable for want of descriptors or memory, so perhaps not for long
};

/// Reads a regular file. Anything else under that path, a file too large for settings, and one behind a link of another
/// user are unreadable.
FileBytes readFile(const QByteArray& path);

/// The same of what was opened, or errno tells why it was not.
FileBytes readFile(const Descriptor& file);

/// Writes all of `bytes`; otherwise errno tells why not.
bool writeAll(int file, const QByteArray& bytes);

/// The text of an errno value.
QString errorText(int error);

} // namespace Zyr
