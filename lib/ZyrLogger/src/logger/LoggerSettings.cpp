// From the settings to the running chain: the first load builds it, later ones reconfigure it in place.

#include <ZyrLogger/Logger.h>

#include "logger/LoggerPrivate.h"
#include "logger/OwnEntries.h"
#include "settings/ByteSize.h"
#include "settings/ChainSettings.h"
#include "settings/SettingsGroup.h"
#include "store/AppendFile.h"
#include "system/StandardOutput.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>

#include <Poco/PatternFormatter.h>

#include <limits>
#include <memory>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

/// Each is a copy of its record, text included: all that a logger ever wrote must not be kept.
constexpr quint32 maxRemembered = 100'000;

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
    QLatin1StringView key;
    QString value;
};

std::optional<std::size_t> queueBound(const QString& text)
{
    const auto bytes = parseByteSize(text.toStdString());
    return bytes && *bytes >= QueueLimits::minBytes && *bytes <= QueueLimits::maxBytes
               ? std::optional(static_cast<std::size_t>(*bytes))
               : std::nullopt;
}

std::optional<QueueLimits::Overflow> queueOverflow(const QString& text)
{
    if (text == "wait"_L1)
        return QueueLimits::Overflow::Wait;
    return text == "drop"_L1 ? std::optional(QueueLimits::Overflow::Drop) : std::nullopt;
}

void configure(Poco::Configurable& link, std::span<const ChainSetting> settings, SettingsGroup& group,
               CurrentKey& current)
{
    for (const ChainSetting& setting : settings) {
        current = {setting.key, {}};
        current.value = group.readText(setting);
        link.setProperty(setting.property, current.value.toStdString());
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
    QString applyFilters(bool& keysAdded, bool& accepted);
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
    bool counted = true;
    const QString level = applyFilters(keysAdded, counted);
    SettingsGroup group(settings, "LoggerFileChannel"_L1, keysAdded, logger.configFilePath());

    auto channel = chain.ensureFile();
    if (!channel)
        return LoadOutcome::Applied; // shut down meanwhile
    const LogFileChannel::Change change(*channel);
    const LoadOutcome outcome = applyFileChannel(*channel, group);
    if (outcome != LoadOutcome::Applied)
        return outcome;

    const bool isNew = !chain.share(chain.links.formatter);
    auto formatter = chain.ensureFormatter();
    const bool formatted = formatter && applyFormat(*formatter, isNew, group);
    const bool queued = applyQueue(group);
    if (!chain.isGone()) // which keeps keys from being read
        group.reportUnknown();
    const bool complete = chain.complete(logger.loggerName, level, logger.configFilePath());
    settingsChanged = keysAdded;
    return counted && formatted && queued && complete ? LoadOutcome::Applied : LoadOutcome::ValueRefused;
}

/// The group "Logger". Returns the level, which is applied last; a refused count leaves the current one, and
/// `accepted` becomes false.
QString LoggerPrivate::SettingsLoad::applyFilters(bool& keysAdded, bool& accepted)
{
    SettingsGroup group(settings, "Logger"_L1, keysAdded, logger.configFilePath());
    QString level = group.readText("level"_L1, u"information"_s);
    const QStringList filters = group.readText("textFilters"_L1, u""_s).split(u'|', Qt::SkipEmptyParts);
    const bool check = group.readSwitch("checkRepeatedMsg"_L1, false);
    const bool isFirst = !chain.shareFile();
    const auto readCount = [&](QLatin1StringView key, int usual, quint32 most, quint32 current) {
        const auto count = group.readCount(key, usual, most);
        accepted = accepted && count;
        return count.value_or(isFirst ? static_cast<quint32>(usual) : current);
    };
    const quint32 amount = readCount("amountRepeatedMsg"_L1, 1, maxRemembered, logger.amountRepeatedMsg);
    const quint32 maximum =
        readCount("maxRepeatedMsgCounter"_L1, 10, std::numeric_limits<quint32>::max(), logger.maxRepeatedMsgCounter);
    group.reportUnknown();

    const std::lock_guard lock(d.fieldsMutex);
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
        configure(channel, fileChannelSettings(), group, current);
        current = {"path"_L1, path};
        if (!path.isEmpty()) // no repair of the disk opens that one
            failure = LoadOutcome::FileNotOpened;
        channel.open();
        return LoadOutcome::Applied;
    } catch (...) {
        StandardOutput::printParagraph(u"Exception on creating logger"_s);
        group.report(current.key, current.value, Misc::currentExceptionText());
        return failure;
    }
}

/// A refused value ends this stage only, and leaves the current one; a new formatter has no pattern yet, so it gets
/// the default. Returns whether none was refused.
bool LoggerPrivate::SettingsLoad::applyFormat(Poco::PatternFormatter& formatter, bool isNew, SettingsGroup& group)
{
    CurrentKey current;
    try {
        configure(formatter, formatterSettings(), group, current);
        return true;
    } catch (...) {
        group.report(current.key, current.value, Misc::currentExceptionText());
    }
    for (const ChainSetting& setting : formatterSettings()) {
        if (isNew && setting.key == current.key && setting.property == Poco::PatternFormatter::PROP_PATTERN)
            formatter.setProperty(setting.property, setting.defaultValue.toString().toStdString());
        group.contains(setting.key); // also those behind it, which are known
    }
    return false;
}

/// The two keys that are read only when they are there. Returns whether none was refused; a refused one leaves the
/// current one.
bool LoggerPrivate::SettingsLoad::applyQueue(SettingsGroup& group)
{
    auto channel = chain.shareFile();
    if (!channel)
        return true;
    QueueLimits limits = channel->writer().limits();
    bool accepted = true;
    const auto apply = [&](QLatin1StringView key, auto read, auto& limit, auto usual, const QString& legal) {
        if (!group.contains(key)) {
            limit = usual;
            return;
        }
        const QString value = group.storedText(key, {});
        if (const auto wanted = read(value)) {
            limit = *wanted;
        } else {
            group.report(key, value, u"legal is "_s + legal);
            accepted = false;
        }
    };
    apply("queueSize"_L1, queueBound, limits.bytes, QueueLimits().bytes,
          u"<n>, <n> K or <n> M, from 64 K to 1024 M"_s);
    apply("queueOverflow"_L1, queueOverflow, limits.overflow, QueueLimits().overflow, u"wait or drop"_s);
    channel->writer().setLimits(limits);
    return accepted;
}

} // namespace Zyr
