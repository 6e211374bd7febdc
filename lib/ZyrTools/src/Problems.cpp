// What goes wrong in the library itself, told on standard error.
#include "ZyrTools/Misc.h"

#include "system/HeldSignals.h"

#include <Poco/Exception.h>

#include <unistd.h>

#include <exception>
#include <tuple>

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

void reportProblem(const QString& subject, const QString& problem) noexcept
{
    try {
        QString line = subject + u": "_s + problem;
        line.replace(u'\n', u' ').replace(u'\r', u' ');
        const QByteArray bytes = (line + u'\n').toUtf8();
        const HeldSignals held;
        // One write, so that lines of several threads do not mix. What standard error refuses is gone.
        std::ignore = ::write(STDERR_FILENO, bytes.constData(), static_cast<size_t>(bytes.size()));
    } catch (...) {
        // Out of memory: nothing can be said.
    }
}

} // namespace Zyr::Misc
