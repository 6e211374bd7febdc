// A logger whose settings file holds any bytes, at its first load and while it runs: whatever they do to its chain,
// with a good file it writes again, and it touches no files outside its own directories.

#include "Check.h"
#include "Confinement.h"
#include "Scratch.h"

#include "file/FileBytes.h"
#include "settings/SettingsText.h"

#include <ZyrLogger/Logger.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QScopeGuard>
#include <QtCore/QSettings>

#include <Poco/Exception.h>

#include <chrono>
#include <cstdlib>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QByteArray configDirectory = "config";
const QByteArray logDirectory = "log"; // and the working directory meanwhile, which relative paths lead to
const QByteArray goodDirectory = "good";
const QByteArray settingsName = "fuzzed.ini";

/// Keeps the watcher's thread alive, which would otherwise be started for each input.
class WatcherKeeper : private Zyr::ConfigFileListener
{
public:
    WatcherKeeper()
        : ConfigFileListener(u""_s, u"keeper.ini"_s)
    {
        check(startConfigFileWatcher(), "Files can be watched");
    }
    ~WatcherKeeper() override { stopConfigFileWatcher(); }

private:
    bool onConfigFileChanged(QSettings&, bool) override { return false; }
};

struct Place
{
    Place()
    {
        scratch.renew(configDirectory);
        scratch.renew(logDirectory);
        ::setenv("QUADEL_CURRENT_CONFIG_LOCATION", scratch.path(configDirectory).constData(), 1);
        ::setenv("QUADEL_CURRENT_LOG_LOCATION", scratch.path(logDirectory).constData(), 1);
    }

    const QString home = QDir::currentPath();
    Scratch scratch;
};

/// Whether a path in the settings leads to a file below the working directory, if there is one.
bool hasHarmlessPath(const Zyr::SettingsMap& values)
{
    const auto path = values.constFind(u"LoggerFileChannel/path"_s);
    if (path == values.cend())
        return true;
    const QVariant joined = Zyr::Misc::settingsText(*path); // as the logger does
    const QString text = joined.typeId() == QMetaType::QString ? joined.toString() : u"/"_s;
    return text.size() < 60 && !text.startsWith(u'/') && !text.contains(u".."_s) && !text.contains(QChar(0));
}

void apply(Zyr::Logger& logger, const Zyr::SettingsMap& values)
{
    Zyr::MemorySettings memory(values);
    try {
        logger.onConfigFileChanged(memory.settings(), false);
    } catch (const Poco::Exception&) {
        // The watcher reports those that are refused so.
    }
}

void logSome(Zyr::Logger& logger)
{
    for (const unsigned char level : {Zyr::Emerg, Zyr::Info, Zyr::Todo}) {
        for (int count = 0; count < 3; ++count) // of which all but one are repeats
            logger.out(level, u"Valve %1 \"%valve\""_s, "valve.cpp", 7).arg(1234567).topic(u"valve"_s, u"V1"_s).endl();
    }
    logger.flushLog();
}

/// With a good settings file, an entry is soon in the log file, once and whole.
void checkRecovery(Zyr::Logger& logger, const Scratch& scratch, const QString& text)
{
    const QByteArray name = goodDirectory + "/good.log";
    const Zyr::SettingsMap good{{u"Logger/level"_s, u"trace"_s},
                                {u"LoggerFileChannel/path"_s, QFile::decodeName(scratch.path(name))},
                                {u"LoggerFileChannel/rotation"_s, u"never"_s},
                                {u"LoggerFileChannel/flush"_s, true}, // without waiting for more lines
                                {u"LoggerFileChannel/pattern"_s, u"%p %t"_s}};
    apply(logger, good);
    check(logger.getLogFilePath() == QFile::decodeName(scratch.path(name)), "A good file takes effect");
    logger.out(Zyr::Info, text).endl();
    const QByteArray line = "info " + text.toUtf8() + '\n';
    const auto limit = std::chrono::steady_clock::now() + 30s; // the machine may be under load
    QByteArray written;
    while (!(written = scratch.read(name)).endsWith(line) && std::chrono::steady_clock::now() < limit)
        std::this_thread::sleep_for(50us);
    check(written.endsWith(line), "With a good file, the logger writes again", written);
    check(written.count(line) == 1, "An entry is written once", written);
}

} // namespace

// Replaces the wait of one second in a logger's destructor.
extern "C" void __wrap__ZN7QThread6msleepEm(unsigned long)
{
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Place place;
    static const WatcherKeeper keeper;
    const Scratch& scratch = place.scratch;
    const Confinement confinement(scratch.path());
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    QString problem;
    const auto parsed = Zyr::parseSettings(bytes, problem);
    check(parsed.has_value(), "Settings can be read");
    if (!hasHarmlessPath(parsed->values))
        return -1; // no input for the corpus

    // A mark that the input cannot contain, as a pattern for example.
    const QString mark = QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex());
    scratch.renew(logDirectory);
    scratch.renew(goodDirectory);
    QDir::setCurrent(QFile::decodeName(scratch.path(logDirectory)));
    const auto back = qScopeGuard([] { QDir::setCurrent(place.home); }); // from where libFuzzer finds its files
    scratch.write(configDirectory + '/' + settingsName, bytes);
    Zyr::Logger logger(u"Fuzzed"_s, u"fuzzed.log"_s, QString::fromUtf8(settingsName));
    logSome(logger);
    checkRecovery(logger, scratch, u"after the first load "_s + mark);
    apply(logger, parsed->values);
    logSome(logger);
    checkRecovery(logger, scratch, u"after a reload "_s + mark);
    return 0;
}
