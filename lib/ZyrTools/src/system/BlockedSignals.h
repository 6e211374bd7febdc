#pragma once

#include <csignal>

namespace Zyr {

/// Blocks every signal in the calling thread while it lives. A thread created meanwhile inherits that for good: signals
/// are the application's, and none of its handlers shall run on a thread of the library. Keeps errno.
class BlockedSignals
{
public:
    BlockedSignals() noexcept;
    ~BlockedSignals();
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before;
};

} // namespace Zyr
