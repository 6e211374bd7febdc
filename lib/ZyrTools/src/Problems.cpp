// What goes wrong in the library itself, told on standard error.
#include "ZyrTools/Misc.h"

#include <Poco/Exception.h>

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <exception>
#include <tuple>

using namespace Qt::StringLiterals;

namespace Zyr::Misc {

namespace {

/// A closed pipe as standard error must not end the application: the signal that writing raises is taken back.
void writeWithoutSignal(const QByteArray& line)
{
    sigset_t pipe;
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    sigset_t before;
    ::pthread_sigmask(SIG_BLOCK, &pipe, &before);
    sigset_t pending;
    ::sigpending(&pending);
    // What standard error refuses is gone.
    std::ignore = ::write(STDERR_FILENO, line.constData(), static_cast<size_t>(line.size()));
    const timespec now = {};
    if (!::sigismember(&pending, SIGPIPE))
        ::sigtimedwait(&pipe, nullptr, &now);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

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
        // One write, so that lines of several threads do not mix.
        writeWithoutSignal((line + u'\n').toUtf8());
    } catch (...) {
        // Out of memory: nothing can be said.
    }
}

} // namespace Zyr::Misc
