// Directories, loads and child processes for tests.

#include "TestPlace.h"

#include <ZyrTools/ConfigFileListener.h>

#include <QtTest/QtTest>

#include <cstdlib>
#include <exception>

TestPlace::TestPlace()
{
    if (!directory.isValid())
        qFatal("no temporary directory: %s", qPrintable(directory.errorString()));
    for (const char* const variable : {"QUADEL_CURRENT_LOG_LOCATION", "QUADEL_CURRENT_CONFIG_LOCATION"})
        qputenv(variable, QFile::encodeName(directory.path()));
}

QByteArray TestPlace::read(const QString& name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList TestPlace::lines(const QString& name) const
{
    QByteArray bytes = read(name);
    bytes.chop(bytes.endsWith('\n'));
    return bytes.isEmpty() ? QStringList() : QString::fromUtf8(bytes).split(u'\n');
}

QString TestPlace::write(const QString& name, const QByteArray& bytes) const
{
    QFile file(path(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    return name;
}

void TestPlace::replace(const QString& name, const QByteArray& bytes) const
{
    const QByteArray made = QFile::encodeName(path(write(name + QStringLiteral(".new"), bytes)));
    if (std::rename(made.constData(), QFile::encodeName(path(name)).constData()) != 0)
        qFatal("cannot replace %s", qPrintable(name));
}

namespace {

/// Hands its first load to a logger. The test makes no QSettings of its own: it would share memory with the library's
/// under a lock of Qt's, which ThreadSanitizer does not see.
class FirstLoad : public Zyr::ConfigFileListener
{
public:
    FirstLoad(Zyr::Logger& target, const QString& file)
        : ConfigFileListener({}, file)
        , logger(target)
    {
        startConfigFileWatcher();
        stopConfigFileWatcher();
    }

    bool changed = false;
    std::exception_ptr problem;
    QString group; ///< current group of the settings afterwards

private:
    bool onConfigFileChanged(QSettings& settings, bool isFirst) override
    {
        if (!isFirst)
            return false;
        try {
            changed = logger.createLoggerBySettings(settings);
        } catch (...) {
            problem = std::current_exception();
        }
        group = settings.group();
        return changed;
    }

    Zyr::Logger& logger;
};

} // namespace

bool TestPlace::load(Zyr::Logger& logger, const QByteArray& settings) const
{
    const FirstLoad load(logger, path(write(QStringLiteral("load.ini"), settings)));
    [&] { QCOMPARE(load.group, QString()); }();
    if (load.problem)
        std::rethrow_exception(load.problem);
    return load.changed;
}

QByteArray settingsFile(const QByteArray& loggerKeys, const QByteArray& channelKeys)
{
    // QSettings keeps the last of two equal keys, so that a test's own values win.
    return "[Logger]\nlevel=trace\n" + loggerKeys + "\n[LoggerFileChannel]\npattern=%p %t\nrotation=never\n" +
           channelKeys + '\n';
}

void say(const QString& text)
{
    Zyr::Logger::instance().out(Zyr::Info, text).endl();
}

int runTest(int count, char* words[], QObject&& scenarios, QObject&& test)
{
    if (count == 3 && QMetaObject::invokeMethod(&scenarios, words[2]))
        return right ? 0 : 1;
    const QCoreApplication application(count, words);
    return QTest::qExec(&test, count, words);
}

int runScenario(const TestPlace& place, const QString& scenario)
{
    // By a shell, since QProcess cannot start anything under an emulator.
    const QString command = QStringLiteral("cd %1 && timeout 60 $ZYR_TEST_EMULATOR '%2' --scenario %3 >output 2>error")
                                .arg(place.path({}), QCoreApplication::applicationFilePath(), scenario);
    return std::system(qPrintable(command));
}
