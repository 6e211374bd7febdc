// The calls of a logger's listeners, and who waits for their end.

#pragma once

#include "base/Mutex.h"
#include "logger/ListenerRecord.h"

#include <ZyrLogger/Logger.h>

#include <list>

namespace Zyr {

/// Calls the listeners without a lock, and knows which of them a thread is inside, so that unregistering one can wait.
class ListenerCalls
{
public:
    /// The logger's list, and the mutex of its fields, which guards that.
    ListenerCalls(Mutex& itsFieldsMutex, const QList<Logger::LogListener*>& itsListeners)
        : fieldsMutex(itsFieldsMutex)
        , listeners(itsListeners)
    {
    }
    ListenerCalls(const ListenerCalls&) = delete;
    ListenerCalls& operator=(const ListenerCalls&) = delete;

    /// Calls each listener that is registered when its turn comes.
    void callAll(const ListenerRecord& record) ZYR_EXCLUDES(fieldsMutex);

    /// Waits until no thread is inside `listener`; not at all from inside any listener's callback, since two that each
    /// unregister the other would wait for each other for ever.
    void waitUntilLeft(const Logger::LogListener* listener) ZYR_EXCLUDES(fieldsMutex);

    /// In the child of a fork.
    void renewInChild();

private:
    class Call;

    bool isInside(const Logger::LogListener* listener) const ZYR_REQUIRES(fieldsMutex);

    Mutex& fieldsMutex;
    const QList<Logger::LogListener*>& listeners ZYR_GUARDED_BY(fieldsMutex);
    Condition callEnded; ///< with `fieldsMutex`
    std::list<const Logger::LogListener*> underWay ZYR_GUARDED_BY(fieldsMutex);
};

} // namespace Zyr
