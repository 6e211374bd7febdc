#pragma once

#include "logger/LoggerState.h"

namespace Zyr {

/// One record's visit to the next listener that has not had it. The calling thread counts as being inside that listener
/// for as long as this object lives.
class Logger::ListenerCall
{
public:
    /// Picks the first of the logger's listeners that is not in `served`, and adds it there. Going by who was served
    /// instead of by index keeps a listener that unregisters itself, or others, from making the record miss somebody.
    ListenerCall(Logger& itsLogger, std::vector<const LogListener*>& served);
    ~ListenerCall();
    ListenerCall(const ListenerCall&) = delete;
    ListenerCall& operator=(const ListenerCall&) = delete;

    /// Null when every listener has been served.
    LogListener* listener() const noexcept { return current; }

    bool isStillRegistered() const;

    /// Whether the calling thread is inside any listener of any logger.
    static bool isUnderWayHere() noexcept;

private:
    Logger& logger;
    LogListener* current = nullptr;
    std::list<const LogListener*>::iterator entry;
};

} // namespace Zyr
