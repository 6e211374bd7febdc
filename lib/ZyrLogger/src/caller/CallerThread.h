#pragma once

#include "caller/MessageMemory.h"
#include "caller/Record.h"
#include "caller/SourceName.h"
#include "text/LocaleNumbers.h"

#include <optional>

namespace Zyr {

/// What a thread that logs keeps from one entry to the next, so that an entry costs no allocation, no system call and
/// no memory that other threads write.
class CallerThread
{
public:
    /// Null where there is no memory, or no thread can have its own any more since the program ends.
    static CallerThread* current() noexcept { return mine ? mine : begin(); }

    /// In the child of a fork.
    static void afterForkInChild() noexcept;

    MessageMemory messages;
    RecentSourceNames sourceNames;
    std::optional<LocaleNumbers> numbers;
    Record::Kept record;

private:
    class KeyLife;

    static CallerThread* begin() noexcept;
    static void end(void* thread) noexcept;

    static const KeyLife keyLife;
    [[gnu::tls_model("initial-exec")]] static thread_local constinit CallerThread* mine;
};

} // namespace Zyr
