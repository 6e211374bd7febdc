#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

/// What a helper program did until it ended.
struct HelperResult
{
    bool exited = false; ///< by itself; otherwise by signal `code`, SIGKILL when it took longer than it was given
    int code = -1;
    QByteArray standardOutput;
    QByteArray standardError;
};

/// Runs the program `name` beside the test program with `arguments` and the test's environment, and waits for its end.
/// The environment variable ZYR_TEST_EMULATOR, words separated by blanks, is put in front of it.
HelperResult runHelper(const QString& name, const QStringList& arguments, int timeoutSeconds = 60);
