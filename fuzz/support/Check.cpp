// Findings: printed, then abort().

#include "Check.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace {

/// libFuzzer's own output: what the library prints on standard error is discarded.
const int reports = ::dup(STDERR_FILENO);

QByteArray shown(const QByteArray& bytes)
{
    QByteArray text;
    for (const char byte : bytes)
        text += byte >= ' ' && byte <= '~' ? QByteArray(1, byte) : "\\x" + QByteArray(1, byte).toHex();
    return text;
}

} // namespace

void check(bool holds, const char* property, const QByteArray& details)
{
    if (holds)
        return;
    ::dprintf(reports, "\n==== Does not hold: %s\n%s\n", property, shown(details).constData());
    std::abort();
}

void checkEqual(const QByteArray& found, const QByteArray& expected, const char* property)
{
    if (found != expected)
        check(false, property, "found '" + found + "', expected '" + expected + '\'');
}
