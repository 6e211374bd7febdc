// How listeners are called one after the other while others register and unregister.

#include "logger/ListenerCalls.h"

#include <algorithm>
#include <new>
#include <vector>

namespace Zyr {

namespace {

constinit thread_local int callsHere = 0; // of listeners of any logger

} // namespace

/// One record's visit to the next listener that has not had it. The calling thread counts as being inside that listener
/// for as long as this object lives.
class ListenerCalls::Call
{
public:
    /// Picks the first listener that is not in `served`, and adds it there. By an index the record would miss a
    /// listener when another one unregisters itself.
    Call(ListenerCalls& itsCalls, std::vector<const Logger::LogListener*>& served);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// Null when every listener has been served.
    Logger::LogListener* listener() const noexcept { return current; }

    bool isStillRegistered() const;

private:
    ListenerCalls& calls;
    Logger::LogListener* current = nullptr;
    std::list<const Logger::LogListener*>::iterator entry;
};

ListenerCalls::Call::Call(ListenerCalls& itsCalls, std::vector<const Logger::LogListener*>& served)
    : calls(itsCalls)
{
    const Guard guard(calls.fieldsMutex);
    const auto next = std::find_if(calls.listeners.begin(), calls.listeners.end(), [&](const auto* candidate) {
        return candidate && std::find(served.begin(), served.end(), candidate) == served.end();
    });
    if (next == calls.listeners.end())
        return;
    served.push_back(*next);
    entry = calls.underWay.insert(calls.underWay.end(), *next);
    current = *next;
    ++callsHere;
}

ListenerCalls::Call::~Call()
{
    if (!current)
        return;
    --callsHere;
    const Guard guard(calls.fieldsMutex);
    calls.underWay.erase(entry);
    calls.callEnded.notifyAll();
}

bool ListenerCalls::Call::isStillRegistered() const
{
    const Guard guard(calls.fieldsMutex);
    return calls.listeners.contains(current);
}

void ListenerCalls::callAll(const ListenerRecord& record)
{
    std::vector<const Logger::LogListener*> served;
    for (;;) {
        const Call call(*this, served);
        Logger::LogListener* const listener = call.listener();
        if (!listener)
            return;
        listener->handleMessage(record.priority, record.time, record.text);
        if (call.isStillRegistered())
            listener->handleFormatedMessage(record.line);
    }
}

void ListenerCalls::waitUntilLeft(const Logger::LogListener* listener)
{
    if (callsHere > 0)
        return;
    const Guard guard(fieldsMutex);
    while (isInside(listener))
        callEnded.wait(fieldsMutex);
}

bool ListenerCalls::isInside(const Logger::LogListener* listener) const
{
    return std::find(underWay.begin(), underWay.end(), listener) != underWay.end();
}

/// A copied condition variable may count threads that wait, and are not there.
void ListenerCalls::renewInChild()
{
    new (&callEnded) Condition;
}

} // namespace Zyr
