#pragma once

#include "caller/MessageMemory.h"
#include "caller/Record.h"
#include "caller/SourceName.h"
#include "rendering/LocaleNumbers.h"

namespace Zyr {

/// What a thread that logs keeps from one entry to the next, so that an entry costs no allocation, no system call and
/// no memory that other threads write.
class CallerThread
{
public:
    /// Null where there is no memory, and where the thread is ending and its thread_local objects are gone: static
    /// objects log after those of the main thread.
    static CallerThread* current() noexcept { return mine ? mine : begin(); }

    /// In the child of a fork.
    static void afterForkInChild() noexcept;

    MessageMemory messages;
    RecentSourceNames sourceNames;
    LocaleNumbers numbers;
    Record::Kept record;

private:
    class End;

    static CallerThread* begin() noexcept;

    [[gnu::tls_model("initial-exec")]] static thread_local constinit CallerThread* mine;
};

} // namespace Zyr
