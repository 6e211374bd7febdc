// Lines on standard output.

#include "system/StandardOutput.h"

#include "base/Mutex.h"
#include "system/HeldSignals.h"

#include <QtCore/QTextStream>

#include <cstdio>
#include <new>
#include <utility>

namespace Zyr::StandardOutput {

namespace {

constinit Mutex streamMutex;

/// Never destroyed, since destructors of static objects log too. Nothing is lost by that: every line is flushed.
QTextStream* stream ZYR_GUARDED_BY(streamMutex) = nullptr;

template <typename Print>
void printWhole(Print print)
{
    const Guard guard(streamMutex);
    if (!stream)
        stream = new QTextStream(stdout);
    const HeldSignals held; // also of what the application has left in the buffer
    print(*stream);
    // After a failed write the stream would keep this line and all that follow in its memory.
    if (stream->status() != QTextStream::Ok)
        delete std::exchange(stream, nullptr);
}

} // namespace

void printLine(const QString& line)
{
    printWhole([&](QTextStream& out) { out << line << Qt::endl; });
}

void printParagraph(const QString& line)
{
    printWhole([&](QTextStream& out) { out << Qt::endl << line << Qt::endl; });
}

void afterForkInChild() noexcept
{
    new (&streamMutex) Mutex;
    const Guard guard(streamMutex);
    stream = nullptr;
}

} // namespace Zyr::StandardOutput
