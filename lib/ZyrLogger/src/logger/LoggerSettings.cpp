// From the settings to the running chain: the first load builds it, later ones reconfigure it in place.

#include <ZyrLogger/Logger.h>

#include "chain/LineFormatter.h"
#include "chain/LineFormattingChannel.h"
#include "logger/LoggerState.h"
#include "logger/OwnEntries.h"
#include "settings/ByteSize.h"
#include "settings/ChainSettings.h"
#include "settings/SettingsGroup.h"
#include "store/AppendFile.h"
#include "system/StandardOutput.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFileInfo>

#include <Poco/Exception.h>
#include <Poco/Logger.h>

#include <limits>
#include <memory>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

/// Each is a copy of its record, text included: all that a logger ever wrote must not be kept.
constexpr quint32 mostRemembered = 100'000;

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
struct Attempt
{
    QLatin1StringView key;
    QString value;
};

std::optional<std::size_t> queueBound(const QString& text)
{
    const auto bytes = parseByteSize(text.toStdString());
    return bytes && *bytes >= LogWriter::leastBound && *bytes <= LogWriter::mostBound
               ? std::optional(static_cast<std::size_t>(*bytes))
               : std::nullopt;
}

std::optional<LogWriter::Overflow> queueOverflow(const QString& text)
{
    if (text == "wait"_L1)
        return LogWriter::Overflow::Wait;
    return text == "drop"_L1 ? std::optional(LogWriter::Overflow::Drop) : std::nullopt;
}

void configure(Poco::Configurable& link, std::span<const ChainSetting> settings, SettingsGroup& group, Attempt& attempt)
{
    for (const ChainSetting& setting : settings) {
        attempt = {setting.key, {}};
        attempt.value = group.readText(setting);
        link.setProperty(setting.property, attempt.value.toStdString());
    }
}

} // namespace

enum class Logger::LoadOutcome { Applied, ValueRefused, FileNotOpened };

bool Logger::onConfigFileChanged(QSettings& settings, bool firstLoad)
{
    if (state->isChainGone())
        return false;
    bool settingsChanged = false;
    switch (applySettings(settings, settingsChanged)) {
    case LoadOutcome::Applied:
        break;
    case LoadOutcome::ValueRefused:
        configFileLoadFailed();
        break;
    case LoadOutcome::FileNotOpened:
        configFileLoadFailed(
            [path = getLogFilePath(), trial = std::make_shared<OpenTrial>()] { return trial->succeeds(path); });
        break;
    }
    if (isMainLogger() && !firstLoad)
        out(System, u"Logger configuration changed"_s, OwnEntries::file, OwnEntries::configurationChangedLine).endl();
    return settingsChanged;
}

bool Logger::createLoggerBySettings(QSettings& settings)
{
    if (!state->isChainGone())
        watchSettings();
    bool settingsChanged = false;
    applySettings(settings, settingsChanged);
    return settingsChanged;
}

/// `settingsChanged` stays false when the pass ends early.
Logger::LoadOutcome Logger::applySettings(QSettings& settings, bool& settingsChanged)
{
    if (state->isChainGone())
        return LoadOutcome::Applied;
    const std::lock_guard turn(state->reload);
    bool keysAdded = false;
    bool counted = true;
    const QString level = applyFilters(settings, keysAdded, counted);
    SettingsGroup group(settings, "LoggerFileChannel"_L1, keysAdded, configFilePath());

    state->link(fileChannel, [] { return new LogFileChannel; });
    auto channel = state->shareFile();
    if (!channel)
        return LoadOutcome::Applied; // shut down meanwhile
    const LogFileChannel::Change change(*channel);
    const LoadOutcome outcome = applyFileChannel(*channel, group);
    if (outcome != LoadOutcome::Applied)
        return outcome;

    const bool isNew = !state->share(patternFormatter);
    auto formatter = state->link(patternFormatter, [] { return new LineFormatter; });
    const bool formatted = formatter && applyFormat(*formatter, isNew, group);
    const bool queued = applyQueue(group);
    if (!state->isChainGone()) // which keeps keys from being read
        group.reportUnknown();
    const bool complete = completeChain(level);
    settingsChanged = keysAdded;
    return counted && formatted && queued && complete ? LoadOutcome::Applied : LoadOutcome::ValueRefused;
}

/// The group "Logger". Returns the level, which is applied last; a refused count leaves what was in force, and
/// `accepted` becomes false.
QString Logger::applyFilters(QSettings& settings, bool& keysAdded, bool& accepted)
{
    SettingsGroup group(settings, "Logger"_L1, keysAdded, configFilePath());
    QString level = group.readText("level"_L1, u"information"_s);
    const QStringList filters = group.readText("textFilters"_L1, u""_s).split(u'|', Qt::SkipEmptyParts);
    const bool check = group.readSwitch("checkRepeatedMsg"_L1, false);
    const bool isFirst = !state->shareFile();
    const auto readCount = [&](QLatin1StringView key, int usual, quint32 most, quint32 current) {
        const auto count = group.readCount(key, usual, most);
        accepted = accepted && count;
        return count.value_or(isFirst ? static_cast<quint32>(usual) : current);
    };
    const quint32 amount = readCount("amountRepeatedMsg"_L1, 1, mostRemembered, amountRepeatedMsg);
    const quint32 maximum =
        readCount("maxRepeatedMsgCounter"_L1, 10, std::numeric_limits<quint32>::max(), maxRepeatedMsgCounter);
    group.reportUnknown();

    const std::lock_guard lock(state->guard);
    textFilters = filters;
    checkRepeatedMsg = check;
    amountRepeatedMsg = amount;
    maxRepeatedMsgCounter = maximum;
    state->publishRules();
    return level;
}

/// Where it fails, the channel stays closed until a record or the next load opens it.
Logger::LoadOutcome Logger::applyFileChannel(Poco::FileChannel& channel, SettingsGroup& group)
{
    channel.close();

    const bool hasPath = group.contains("path"_L1);
    const QString path = hasPath ? group.storedText("path"_L1, logFilePath) : logFilePath;
    if (hasPath)
        Misc::checkDirectory(QFileInfo(path).absolutePath());
    channel.setProperty(Poco::FileChannel::PROP_PATH, path.toStdString());
    if (!hasPath)
        group.read("-path"_L1, path); // only tells the operator which path is in use

    LoadOutcome failure = LoadOutcome::ValueRefused;
    Attempt attempt;
    try {
        configure(channel, fileChannelSettings(), group, attempt);
        attempt = {"path"_L1, path};
        if (!path.isEmpty()) // no repair of the disk opens that one
            failure = LoadOutcome::FileNotOpened;
        channel.open();
        return LoadOutcome::Applied;
    } catch (...) {
        StandardOutput::printParagraph(u"Exception on creating logger"_s);
        group.report(attempt.key, attempt.value, Misc::currentExceptionText());
        return failure;
    }
}

/// A refused value ends this stage only, and leaves what was in force; a new formatter has no pattern yet, so it gets
/// the default. Returns whether none was refused.
bool Logger::applyFormat(Poco::PatternFormatter& formatter, bool isNew, SettingsGroup& group)
{
    Attempt attempt;
    try {
        configure(formatter, formatterSettings(), group, attempt);
        return true;
    } catch (...) {
        group.report(attempt.key, attempt.value, Misc::currentExceptionText());
    }
    for (const ChainSetting& setting : formatterSettings()) {
        if (isNew && setting.key == attempt.key && setting.property == Poco::PatternFormatter::PROP_PATTERN)
            formatter.setProperty(setting.property, setting.defaultValue.toString().toStdString());
        group.contains(setting.key); // also those behind it, which are known
    }
    return false;
}

/// The two keys that are read only when they are there. Returns whether none was refused; a refused one leaves what was
/// in force.
bool Logger::applyQueue(SettingsGroup& group)
{
    auto channel = state->shareFile();
    if (!channel)
        return true;
    LogWriter::Limits limits = channel->writer().limits();
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
    apply("queueSize"_L1, queueBound, limits.bytes, LogWriter::Limits().bytes,
          u"<n>, <n> K or <n> M, from 64 K to 1024 M"_s);
    apply("queueOverflow"_L1, queueOverflow, limits.overflow, LogWriter::Limits().overflow, u"wait or drop"_s);
    channel->writer().setLimits(limits);
    return accepted;
}

/// Makes the links that are still missing, each of which takes over the logger's references to the ones below it, and
/// sets the level. Returns whether the logger is complete now.
bool Logger::completeChain(const QString& level)
{
    // Each link gets a reference of its own before ours is released, so that a failure in between loses nothing.
    state->link(asyncChannel, [this] {
        auto* made =
            new LineQueueChannel(Poco::AutoPtr<LogFileChannel>(static_cast<LogFileChannel*>(fileChannel), true));
        fileChannel->release();
        return made;
    });
    state->link(formattingChannel, [this] {
        const Poco::AutoPtr formatter(static_cast<LineFormatter*>(patternFormatter), true);
        auto& file = static_cast<LogFileChannel&>(*fileChannel);
        file.writer().setLossFormat(loggerName.toStdString(), formatter->patterns());
        auto* made = new LineFormattingChannel(
            formatter, Poco::AutoPtr(static_cast<LineQueueChannel*>(asyncChannel), true), state->access);
        patternFormatter->release();
        asyncChannel->release();
        return made;
    });

    const std::string levelName = level.toStdString();
    const QString setting = describeSetting("Logger"_L1, "level"_L1, level);
    if (auto registered = state->share(pocoLogger)) {
        try {
            registered->setLevel(levelName);
        } catch (const Poco::Exception& error) {
            throw Poco::InvalidArgumentException(setting.toStdString(), error.message());
        }
        const std::lock_guard lock(state->guard);
        state->publishChain();
        return true;
    }
    try {
        state->link(pocoLogger, [&] {
            const int parsed = Poco::Logger::parseLevel(levelName);
            auto& made = State::callRegistry([&]() -> Poco::Logger& {
                return Poco::Logger::create(loggerName.toStdString(), Poco::Channel::Ptr(formattingChannel, true),
                                            parsed);
            });
            formattingChannel->release();
            return &made;
        });
        return true;
    } catch (const Poco::ExistsException&) {
        Misc::reportProblem(configFilePath(),
                            u"another logger is named '"_s + loggerName + u"': this one writes nothing"_s);
        return false;
    } catch (...) {
        Misc::reportProblem(configFilePath(), u"no logger '"_s + loggerName + u"' with "_s + setting + u": "_s +
                                                  Misc::currentExceptionText());
        return false;
    }
}

} // namespace Zyr
