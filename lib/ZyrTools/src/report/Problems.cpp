// Reports the library's own problems on standard error, without blocking and without control characters.

#include <ZyrTools/Misc.h>

#include "report/StandardError.h"

#include <QtCore/QStringEncoder>

#include <Poco/Exception.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <limits>
#include <string_view>

#include <pthread.h>

using namespace Qt::StringLiterals;

namespace Zyr::Misc {

QString currentExceptionText()
{
    try {
        throw;
    } catch (const Poco::Exception& error) {
        return QString::fromStdString(error.displayText());
    } catch (const std::exception& error) {
        return QString::fromLocal8Bit(error.what());
    } catch (...) {
        return u"unknown exception"_s;
    }
}

namespace {

/// One report of up to PIPE_BUF bytes, which a pipe takes atomically.
class ReportLine
{
public:
    /// Unprintable characters, which could control a terminal, are shown as escapes.
    void append(QStringView part) noexcept
    {
        for (qsizetype i = 0; i < part.size(); ++i) {
            const bool isPair = part[i].isHighSurrogate() && i + 1 < part.size() && part[i + 1].isLowSurrogate();
            append(part.sliced(i, isPair ? 2 : 1),
                   isPair ? QChar::surrogateToUcs4(part[i], part[i + 1]) : part[i].unicode());
            i += isPair;
        }
    }

    void end() noexcept
    {
        for (const char byte : std::string_view(isCut ? "\xe2\x80\xa6\n" : "\n")) // an ellipsis
            text[size++] = byte;
    }

    std::string_view line() const noexcept { return {text + 1, size - 1}; }
    std::string_view lineAfterBreak() const noexcept { return {text, size}; }

private:
    void append(QStringView character, char32_t code) noexcept
    {
        char bytes[16];
        int count = 1;
        if (code == U'\n' || code == U'\r' || code == U'\t' || code == QChar::LineSeparator ||
            code == QChar::ParagraphSeparator) {
            bytes[0] = ' ';
        } else if (QChar::isPrint(code)) {
            QStringEncoder utf8(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
            count = int(utf8.appendToBuffer(bytes, character) - bytes);
        } else {
            const char* const format = code < 0x100 ? "\\x%02x" : code < 0x10000 ? "\\u%04x" : "\\U%08x";
            count = std::snprintf(bytes, sizeof bytes, format, unsigned(code));
        }
        isCut = isCut || size + std::size_t(count) > sizeof text - maxEndSize;
        if (isCut)
            return;
        std::memcpy(text + size, bytes, std::size_t(count));
        size += std::size_t(count);
    }

    static constexpr std::size_t maxEndSize = 4;

    char text[PIPE_BUF] = {'\n'};
    std::size_t size = 1;
    bool isCut = false;
};

constinit std::atomic<unsigned> dropped = 0;   ///< reports since the last one that was written
constinit std::atomic<bool> isMidLine = false; ///< the last report was written only in part

/// The parent reports how many it dropped; the child counts from 0.
[[maybe_unused]] const int forkHandler = ::pthread_atfork(nullptr, nullptr, [] {
    dropped = 0;
    resetStandardErrorInChild();
});

bool write(ReportLine& report) noexcept
{
    report.end();
    const bool wasMidLine = isMidLine.exchange(false);
    const std::string_view text = wasMidLine ? report.lineAfterBreak() : report.line();
    const std::size_t written = writeToStandardError(text);
    if (written == text.size())
        return true;
    if (wasMidLine || written > 0)
        isMidLine = true;
    return false;
}

bool reportDropped(unsigned count) noexcept
{
    char16_t digits[std::numeric_limits<unsigned>::digits10 + 1];
    char16_t* first = std::end(digits);
    for (unsigned rest = count; rest > 0; rest /= 10)
        *--first = char16_t(u'0' + rest % 10);
    ReportLine report;
    report.append(u"standard error: ");
    report.append({first, std::end(digits)});
    report.append(count == 1 ? u" report before this could not be written"
                             : u" reports before this could not be written");
    return write(report);
}

} // namespace

void reportProblem(const QString& subject, const QString& problem) noexcept
{
    const unsigned before = dropped.exchange(0);
    if (before > 0 && !reportDropped(before)) {
        dropped += before + 1;
        return;
    }
    ReportLine report;
    report.append(subject);
    report.append(u": ");
    report.append(problem);
    if (!write(report))
        ++dropped;
}

} // namespace Zyr::Misc
