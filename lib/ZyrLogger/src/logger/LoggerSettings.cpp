// From the settings to the running chain: the first load builds it, later ones reconfigure it in place.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerPrivate.h"
#include "logger/OwnEntries.h"
#include "settings/SettingsGroup.h"
#include "settings/SettingsKeys.h"
#include "store/AppendFile.h"
#include "system/StandardOutput.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>

#include <Poco/PatternFormatter.h>

#include <memory>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

/// Tries whether a log file can be opened again, and keeps it open for the load that follows: the reader of a pipe
/// would otherwise find its end before the logger writes.
class OpenTrial
{
public:
    bool succeeds(const QString& path)
    {
        CallWatch unwatched;
        file.close(unwatched);
        return Misc::checkDirectory(QFileInfo(path).absolutePath()) && !file.open(path.toStdString(), unwatched);
    }

private:
    AppendFile file;
};

/// The setting that is being handed to the chain, for a report when it is refused.
struct CurrentKey
{
    QLatin1StringView name;
    QString value;
};

void configure(Poco::Configurable& link, std::span<const ChainKey> keys, SettingsGroup& group, CurrentKey& current)
{
    for (const ChainKey& key : keys) {
        current = {key.name, {}};
        current.value = group.read(key);
        link.setProperty(key.property, current.value.toStdString());
    }
}

} // namespace

bool Logger::onConfigFileChanged(QSettings& settings, bool firstLoad)
{
    if (d->chain.isGone())
        return false;
    bool settingsChanged = false;
    switch (d->applySettings(settings, settingsChanged)) {
    case LoggerPrivate::LoadOutcome::Applied:
        break;
    case LoggerPrivate::LoadOutcome::ValueRefused:
        configFileLoadFailed();
        break;
    case LoggerPrivate::LoadOutcome::FileNotOpened:
        configFileLoadFailed(
            [path = getLogFilePath(), trial = std::make_shared<OpenTrial>()] { return trial->succeeds(path); });
        break;
    }
    if (d->isMainLogger() && !firstLoad)
        out(System, u"Logger configuration changed"_s, OwnEntries::file, OwnEntries::configurationChangedLine).endl();
    return settingsChanged;
}

bool Logger::createLoggerBySettings(QSettings& settings)
{
    if (!d->chain.isGone())
        d->watchSettings();
    bool settingsChanged = false;
    d->applySettings(settings, settingsChanged);
    return settingsChanged;
}

/// One load: its steps, in the order in which they take effect.
class LoggerPrivate::SettingsLoad
{
public:
    SettingsLoad(LoggerPrivate& itsPrivate, QSettings& itsSettings)
        : d(itsPrivate)
        , logger(itsPrivate.logger)
        , chain(itsPrivate.chain)
        , settings(itsSettings)
    {
    }

    LoadOutcome apply(bool& settingsChanged);

private:
    QString applyRules(bool& keysAdded, bool& accepted);
    LoadOutcome applyFileChannel(Poco::FileChannel& channel, SettingsGroup& group);
    bool applyFormat(Poco::PatternFormatter& formatter, bool isNew, SettingsGroup& group);
    bool applyQueue(SettingsGroup& group);

    LoggerPrivate& d;
    Logger& logger;
    LoggerChain& chain;
    QSettings& settings;
};

LoggerPrivate::LoadOutcome LoggerPrivate::applySettings(QSettings& settings, bool& settingsChanged)
{
    if (chain.isGone())
        return LoadOutcome::Applied;
    const std::lock_guard lock(reloadMutex);
    return SettingsLoad(*this, settings).apply(settingsChanged);
}

LoggerPrivate::LoadOutcome LoggerPrivate::SettingsLoad::apply(bool& settingsChanged)
{
    bool keysAdded = false;
    bool countsAccepted = true;
    const QString level = applyRules(keysAdded, countsAccepted);
    SettingsGroup group(settings, ChainKeys::group, keysAdded, logger.configFilePath());

    auto channel = chain.ensureFile();
    if (!channel)
        return LoadOutcome::Applied; // shut down meanwhile
    const LogFileChannel::Change change(*channel);
    const LoadOutcome outcome = applyFileChannel(*channel, group);
    if (outcome != LoadOutcome::Applied)
        return outcome;

    const bool isNew = !chain.shareFormatter();
    auto formatter = chain.ensureFormatter();
    const bool formatted = formatter && applyFormat(*formatter, isNew, group);
    const bool queued = applyQueue(group);
    if (!chain.isGone()) // which keeps keys from being read
        group.reportUnknown();
    const bool complete = chain.complete(logger.loggerName, level, logger.configFilePath());
    settingsChanged = keysAdded;
    return countsAccepted && formatted && queued && complete ? LoadOutcome::Applied : LoadOutcome::ValueRefused;
}

/// The group "Logger". Returns the level, which is applied last; a refused count leaves the current one, and
/// `accepted` becomes false.
QString LoggerPrivate::SettingsLoad::applyRules(bool& keysAdded, bool& accepted)
{
    SettingsGroup group(settings, LoggerKeys::group, keysAdded, logger.configFilePath());
    QString level = group.read(LoggerKeys::level);
    const QStringList filters = group.read(LoggerKeys::textFilters).split(u'|', Qt::SkipEmptyParts);
    const bool check = group.read(LoggerKeys::checkRepeatedMsg);
    const bool isFirst = !chain.shareFile();
    quint32 amount = isFirst ? LoggerKeys::amountRepeatedMsg.defaultValue : logger.amountRepeatedMsg;
    quint32 maximum = isFirst ? LoggerKeys::maxRepeatedMsgCounter.defaultValue : logger.maxRepeatedMsgCounter;
    accepted = group.read(LoggerKeys::amountRepeatedMsg, amount);
    accepted = group.read(LoggerKeys::maxRepeatedMsgCounter, maximum) && accepted;
    group.reportUnknown();

    const Guard guard(d.chain.fieldsMutex);
    logger.textFilters = filters;
    logger.checkRepeatedMsg = check;
    logger.amountRepeatedMsg = amount;
    logger.maxRepeatedMsgCounter = maximum;
    d.publishRules();
    return level;
}

/// Where it fails, the channel stays closed until a record or the next load opens it.
LoggerPrivate::LoadOutcome LoggerPrivate::SettingsLoad::applyFileChannel(Poco::FileChannel& channel,
                                                                         SettingsGroup& group)
{
    channel.close();

    const bool hasPath = group.contains("path"_L1);
    const QString path = hasPath ? group.storedText("path"_L1, logger.logFilePath) : logger.logFilePath;
    if (hasPath)
        Misc::checkDirectory(QFileInfo(path).absolutePath());
    channel.setProperty(Poco::FileChannel::PROP_PATH, path.toStdString());
    if (!hasPath)
        group.read("-path"_L1, path); // only tells the operator which path is in use

    LoadOutcome failure = LoadOutcome::ValueRefused;
    CurrentKey current;
    try {
        configure(channel, ChainKeys::fileChannel, group, current);
        current = {"path"_L1, path};
        if (!path.isEmpty()) // no repair of the disk opens that one
            failure = LoadOutcome::FileNotOpened;
        channel.open();
        return LoadOutcome::Applied;
    } catch (...) {
        StandardOutput::printParagraph(u"Exception on creating logger"_s);
        group.report(current.name, current.value, Misc::currentExceptionText());
        return failure;
    }
}

/// A refused value ends this stage only, and leaves the current one; a new formatter has no pattern yet, so it gets
/// the default. Returns whether none was refused.
bool LoggerPrivate::SettingsLoad::applyFormat(Poco::PatternFormatter& formatter, bool isNew, SettingsGroup& group)
{
    CurrentKey current;
    try {
        configure(formatter, ChainKeys::formatter, group, current);
        return true;
    } catch (...) {
        group.report(current.name, current.value, Misc::currentExceptionText());
    }
    for (const ChainKey& key : ChainKeys::formatter) {
        if (isNew && key.name == current.name && key.property == Poco::PatternFormatter::PROP_PATTERN)
            formatter.setProperty(key.property, key.defaultVariant().toString().toStdString());
        group.contains(key.name); // those after the refused one too: otherwise they are reported as unknown
    }
    return false;
}

/// A refused value leaves the current one. Returns whether none was refused.
bool LoggerPrivate::SettingsLoad::applyQueue(SettingsGroup& group)
{
    auto channel = chain.shareFile();
    if (!channel)
        return true;
    QueueLimits limits = channel->writer().limits();
    const bool sizeAccepted = group.read(ChainKeys::queueSize, limits.bytes);
    const bool overflowAccepted = group.read(ChainKeys::queueOverflow, limits.overflow);
    channel->writer().setLimits(limits);
    return sizeAccepted && overflowAccepted;
}

} // namespace Zyr
