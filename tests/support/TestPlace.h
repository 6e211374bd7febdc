#pragma once

#include <ZyrLogger/Logger.h>

#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif

/// Skips a test function that needs what not every machine has. Where CI is set, as by .ci/run, the machine must have
/// it, and the function fails. For what cannot work in a build at all, as with isSanitized, use QSKIP.
#define SKIP_BUT_IN_CI(reason)                                                                                         \
    do {                                                                                                               \
        if (!qEnvironmentVariableIsEmpty("CI"))                                                                        \
            QFAIL(reason);                                                                                             \
        QSKIP(reason);                                                                                                 \
    } while (false)

/// A temporary directory that log and settings files of every logger made from now on go to.
class TestPlace
{
public:
    TestPlace();

    QString path(const QString& name) const { return directory.filePath(name); }

    /// Empty when the file is not there.
    QByteArray read(const QString& name) const;

    /// Without line ends.
    QStringList lines(const QString& name) const;

    /// In place, as a shell's redirection does. Returns the name.
    QString write(const QString& name, const QByteArray& bytes) const;

    /// By a temporary file and a rename, as editors do.
    void replace(const QString& name, const QByteArray& bytes) const;

    /// Hands `settings` to the logger, which leaves them outside any group. Returns what it says about them.
    bool load(Zyr::Logger& logger, const QByteArray& settings) const;

private:
    const QTemporaryDir directory;
};

/// A settings file of which the given keys differ from what a test wants by default: plain text lines, no rotation.
/// `loggerKeys` and `channelKeys` are lines "key=value".
QByteArray settingsFile(const QByteArray& loggerKeys = {}, const QByteArray& channelKeys = {});

/// Set to false by a scenario for what only it can see; its process fails then.
inline bool right = true;

/// Logs a text by the main logger.
void say(const QString& text);

/// A test program's main(): runs the test, or in a process of its own, without an application object, one scenario.
int runTest(int count, char* words[], QObject&& scenarios, QObject&& test);

/// Runs this test program again, with the arguments `--scenario <scenario>`, in `place`; its output and what it says on
/// standard error are in files of these names there. Returns its status.
int runScenario(const TestPlace& place, const QString& scenario);
