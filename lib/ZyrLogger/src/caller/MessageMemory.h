#pragma once

#include <QtCore/QList>
#include <QtCore/QVariant>

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace Zyr {

/// What ended messages leave to the next ones of a thread: their memory, and their argument lists with the room in
/// them. A few of each, since entries are mostly ended before the next one begins.
class MessageMemory
{
public:
    MessageMemory() = default;
    MessageMemory(const MessageMemory&) = delete;
    MessageMemory& operator=(const MessageMemory&) = delete;
    ~MessageMemory()
    {
        while (void* const block = takeBlock())
            ::operator delete(block);
        while (listCount > 0)
            delete lists[--listCount];
    }

    /// Null when there is none.
    void* takeBlock() noexcept { return blockCount > 0 ? blocks[--blockCount] : nullptr; }

    /// False when there are enough: then it stays the caller's.
    bool keepBlock(void* block) noexcept
    {
        if (blockCount == maxKept)
            return false;
        blocks[blockCount++] = block;
        return true;
    }

    /// An empty list.
    QList<QVariant>* takeList()
    {
        if (listCount > 0)
            return lists[--listCount];
        auto list = std::make_unique<QList<QVariant>>();
        list->reserve(usualArguments);
        return list.release();
    }

    void keepList(QList<QVariant>* list) noexcept
    {
        const bool isOwn = list->isDetached();
        if (isOwn)
            list->clear(); // the values' destructors may be the application's, and end messages
        if (!isOwn || listCount == maxKept || list->capacity() > maxArguments) {
            delete list;
            return;
        }
        lists[listCount++] = list;
    }

private:
    static constexpr std::size_t maxKept = 8;
    static constexpr qsizetype usualArguments = 8;
    static constexpr qsizetype maxArguments = 32;

    void* blocks[maxKept];
    QList<QVariant>* lists[maxKept];
    std::size_t blockCount = 0;
    std::size_t listCount = 0;
};

} // namespace Zyr
