#include "HelperProgram.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QTemporaryFile>
#include <QtCore/QThread>

#include <vector>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

QByteArray contentOf(const QTemporaryFile& file)
{
    QFile reader(file.fileName());
    return reader.open(QIODevice::ReadOnly) ? reader.readAll() : QByteArray();
}

} // namespace

HelperResult runHelper(const QString& name, const QStringList& arguments, int timeoutSeconds)
{
    QTemporaryFile output;
    QTemporaryFile error;
    if (!output.open() || !error.open())
        qFatal("no temporary file for a helper program's output");

    // posix_spawn and files instead of QProcess, which cannot start anything under an emulator.
    const QString program = QCoreApplication::applicationDirPath() + u'/' + name;
    const QStringList words =
        qEnvironmentVariable("ZYR_TEST_EMULATOR").split(u' ', Qt::SkipEmptyParts) + QStringList(program) + arguments;
    std::vector<QByteArray> encoded;
    for (const QString& word : words)
        encoded.push_back(word.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& word : encoded)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.handle(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error.handle(), STDERR_FILENO);
    pid_t child = -1;
    const int failure = posix_spawnp(&child, argv.front(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        qFatal("cannot start %s: %s", argv.front(), strerror(failure));

    QElapsedTimer time;
    time.start();
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (time.elapsed() > timeoutSeconds * 1000) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            break;
        }
        QThread::msleep(5);
    }
    const bool exited = WIFEXITED(status);
    return {exited, exited ? WEXITSTATUS(status) : WTERMSIG(status), contentOf(output), contentOf(error)};
}
