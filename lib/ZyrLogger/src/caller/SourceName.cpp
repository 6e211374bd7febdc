// The names of source files, decoded once for the process and found again by each thread.

#include "caller/SourceName.h"

#include <QtCore/QHash>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>

namespace Zyr {

namespace {

constexpr unsigned maxNames = 4096; // beyond which they are not those of a program's source files

// Lists that only grow at their beginnings, so that a fork cannot catch one half changed.
constinit std::array<std::atomic<const SourceName*>, 256> lists = {};
constinit std::atomic<unsigned> count = 0;

const SourceName* findIn(const SourceName* list, const char* utf8) noexcept
{
    while (list && std::strcmp(list->given.constData(), utf8) != 0)
        list = list->next;
    return list;
}

std::size_t slotOf(const char* address, std::size_t slots) noexcept
{
    return (std::uint32_t(reinterpret_cast<std::uintptr_t>(address)) * 2654435769U >> 16) % slots;
}

} // namespace

const SourceName* SourceName::find(const char* utf8) noexcept
try {
    auto& list = lists[qHash(QByteArrayView(utf8)) % lists.size()];
    if (const SourceName* known = findIn(list.load(), utf8))
        return known;
    if (count.fetch_add(1) >= maxNames) {
        count.store(maxNames);
        return nullptr;
    }
    auto made = std::make_unique<SourceName>();
    made->given = utf8;
    made->storage = QString::fromUtf8(utf8);
    made->text = QString::fromRawData(made->storage.constData(), made->storage.size());
    made->utf8 = made->storage.toUtf8();
    made->next = list.load();
    while (!list.compare_exchange_weak(made->next, made.get())) {
        // Should another thread have added the same name, there are two of it.
    }
    return made.release();
} catch (const std::bad_alloc&) {
    return nullptr;
}

QString RecentSourceNames::decode(const char* utf8)
{
    const SourceName*& name = names[slotOf(utf8, names.size())];
    if (!name || std::strcmp(name->given.constData(), utf8) != 0) {
        const SourceName* const found = SourceName::find(utf8);
        if (!found)
            return QString::fromUtf8(utf8);
        name = found;
    }
    last = name;
    return name->text;
}

QByteArray RecentSourceNames::encode(const QString& text) const
{
    if (text.isEmpty())
        return {};
    if (const SourceName* const name = last; name && name->isOf(text))
        return QByteArray::fromRawData(name->utf8.constData(), name->utf8.size());
    return text.toUtf8();
}

} // namespace Zyr
