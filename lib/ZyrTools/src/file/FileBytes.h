#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

struct stat;

namespace Zyr {

class Descriptor;

/// Identity and times of a file: equal stamps mean the same inode, unchanged.
struct FileStamp
{
    quint64 device = 0;
    quint64 inode = 0;
    qint64 modified = 0; ///< nanoseconds
    qint64 changed = 0;  ///< nanoseconds

    static FileStamp of(const struct stat& status);
    bool operator==(const FileStamp&) const = default;
};

/// The result of reading a file once.
struct FileBytes
{
    enum class State { Missing, Unreadable, Read };

    State state = State::Missing;
    QByteArray bytes;
    FileStamp stamp;
    QString reason;        ///< why it is unreadable
    bool shortage = false; ///< unreadable only for lack of descriptors or memory: worth a retry
};

/// Reads a regular file. Anything else, a file too large for settings, and one behind a symbolic link of another user
/// are unreadable.
FileBytes readFile(const QByteArray& path);

/// The same for a file that the caller has opened; if that failed, errno must still hold the reason.
FileBytes readFile(const Descriptor& file);

/// Writes all of `bytes`, or returns false with errno.
bool writeAll(int file, const QByteArray& bytes);

/// The text of an errno value.
QString errorText(int error);

} // namespace Zyr
