// The calls of a logger's listeners, and who waits for their end.

#pragma once

#include "logger/ListenerRecord.h"

#include <ZyrLogger/Logger.h>

#include <condition_variable>
#include <list>
#include <mutex>

namespace Zyr {

/// Calls the listeners without a lock, and knows which of them a thread is inside, so that unregistering one can wait.
class ListenerCalls
{
public:
    /// The logger's list, and the lock of its fields, which guards that.
    ListenerCalls(std::mutex& itsFieldsMutex, const QList<Logger::LogListener*>& itsListeners)
        : fieldsMutex(itsFieldsMutex)
        , listeners(itsListeners)
    {
    }
    ListenerCalls(const ListenerCalls&) = delete;
    ListenerCalls& operator=(const ListenerCalls&) = delete;

    /// Hands the record to each listener that is registered when its turn comes.
    void tell(const ListenerRecord& record);

    /// Waits until no thread is inside `listener`; not at all from inside any listener's callback, since two that each
    /// unregister the other would wait for each other for ever. `lock` is on the fields' mutex.
    void waitUntilLeft(std::unique_lock<std::mutex>& lock, const Logger::LogListener* listener);

    /// In the child of a fork.
    void renewInChild();

private:
    class Call;

    bool isInside(const Logger::LogListener* listener) const;

    std::mutex& fieldsMutex;
    const QList<Logger::LogListener*>& listeners;
    std::condition_variable left; ///< with `fieldsMutex`
    std::list<const Logger::LogListener*> underWay;
};

} // namespace Zyr
