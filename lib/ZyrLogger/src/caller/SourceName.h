#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <array>

namespace Zyr {

/// The name of a source file that log entries come from, decoded once. Never freed: a program has few of them, and
/// messages and remembered records then need no copies of their own.
struct SourceName
{
    QByteArray given; ///< as the caller wrote it
    QByteArray utf8;  ///< the decoded name again; not the same where `given` is no UTF-8
    QString storage;
    QString text; ///< the characters of `storage`, without a count of references
    const SourceName* next;

    bool isOf(const QString& name) const noexcept
    {
        return name.constData() == text.constData() && name.size() == text.size();
    }

    /// Null when there are too many already, or no memory.
    static const SourceName* find(const char* utf8) noexcept;
};

/// The names that a thread used last, found by the addresses of their characters.
class RecentSourceNames
{
public:
    /// Of `utf8`, which is not null. An address may hold another name than it did before.
    QString decode(const char* utf8);

    /// `text` as UTF-8; without a copy where it is what this thread decoded last.
    QByteArray encode(const QString& text) const;

private:
    std::array<const SourceName*, 16> names = {};
    const SourceName* last = nullptr;
};

} // namespace Zyr
