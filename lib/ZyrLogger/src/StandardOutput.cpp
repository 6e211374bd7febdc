#include "StandardOutput.h"

#include <QtCore/QTextStream>

#include <cstdio>
#include <mutex>

namespace Zyr::StandardOutput {

namespace {

constinit std::mutex streamMutex;

/// Never destroyed, since destructors of static objects log too. Nothing is lost by that: every line is flushed.
QTextStream& stream()
{
    static QTextStream& instance = *new QTextStream(stdout);
    return instance;
}

} // namespace

void printLine(const QString& line)
{
    const std::lock_guard lock(streamMutex);
    stream() << line << Qt::endl;
}

void printParagraph(const QString& line)
{
    const std::lock_guard lock(streamMutex);
    stream() << Qt::endl << line << Qt::endl;
}

} // namespace Zyr::StandardOutput
