// How the record that a thread keeps is lent to an entry.

#include "caller/Record.h"

#include "caller/CallerThread.h"

#include <QtCore/QThread>

#include <Poco/Thread.h>

namespace Zyr {

namespace {

constexpr std::size_t maxKeptText = 16 * 1024;

} // namespace

void Record::Kept::renew()
{
    message.emplace();
    outdated = false;
}

Record::Record(CallerThread* thread, const std::string& source)
    : used(thread && !thread->record.lent ? &thread->record : &own)
{
    if (!used->message || used->outdated)
        used->renew();
    PocoMessage& record = message();
    if (record.getSource() != source)
        record.setSource(source);
    if (const Poco::Thread* const poco = Poco::Thread::current())
        record.setThread(poco->getName());
    record.setTid(static_cast<long>(reinterpret_cast<quintptr>(QThread::currentThreadId())));
    used->text.clear();
    used->lent = true; // nothing throws from here on
}

Record::~Record()
{
    used->lent = false;
    if (used->text.capacity() > maxKeptText) {
        used->message.reset();
        used->text = std::string();
    }
}

} // namespace Zyr
