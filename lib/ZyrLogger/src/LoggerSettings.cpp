// From the settings to the running chain: the first load builds it, later ones reconfigure it in place.

#include <ZyrLogger/Logger.h>

#include "ChainSettings.h"
#include "LoggerState.h"
#include "OwnEntries.h"
#include "SettingsGroup.h"
#include "StandardOutput.h"
#include "chain/LineFormatter.h"
#include "chain/LogFileChannel.h"

#include <ZyrLogger/PocoMessage.h>
#include <ZyrTools/Misc.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <Poco/AsyncChannel.h>
#include <Poco/Exception.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>

#include <fcntl.h>
#include <unistd.h>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

bool canBeOpened(const QString& path)
{
    if (!Misc::checkDirectory(QFileInfo(path).absolutePath()))
        return false;
    const int file =
        open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
    if (file < 0)
        return false;
    close(file);
    return true;
}

} // namespace

bool Logger::onConfigFileChanged(QSettings& settings, bool firstLoad)
{
    if (state->isChainGone())
        return false;
    bool settingsChanged = false;
    State::Load outcome = State::Load::Applied;
    {
        const std::lock_guard turn(state->reload);
        settingsChanged = createLoggerBySettings(settings);
        outcome = state->latestLoad;
    }
    switch (outcome) {
    case State::Load::Applied:
        break;
    case State::Load::Refused:
        configFileLoadFailed();
        break;
    case State::Load::FileNotOpened:
        configFileLoadFailed([path = getLogFilePath()] { return canBeOpened(path); });
        break;
    }
    if (isMainLogger() && !firstLoad)
        out(System, u"Logger configuration changed"_s, OwnEntries::file, OwnEntries::configurationChangedLine).endl();
    return settingsChanged;
}

bool Logger::createLoggerBySettings(QSettings& settings)
{
    const std::lock_guard turn(state->reload);
    state->latestLoad = State::Load::Applied;
    if (state->isChainGone())
        return false;
    bool settingsChanged = false;

    const QString level = applyFilters(settings, settingsChanged);
    SettingsGroup group(settings, "LoggerFileChannel"_L1, settingsChanged, configFilePath());

    auto channel = state->link(fileChannel, [] { return new LogFileChannel; });
    if (!channel)
        return false;
    if (!applyFileChannel(*channel, group))
        return false;

    if (auto formatter = state->link(patternFormatter, [] { return new LineFormatter; }))
        applyFormat(*formatter, group);

    completeChain(level);
    return settingsChanged;
}

/// The group "Logger". Returns the level, which is applied last.
QString Logger::applyFilters(QSettings& settings, bool& settingsChanged)
{
    SettingsGroup group(settings, "Logger"_L1, settingsChanged, configFilePath());
    const QString level = group.readText("level"_L1, u"information"_s);
    const QStringList filters = group.readText("textFilters"_L1, u""_s).split(u'|', Qt::SkipEmptyParts);
    const bool check = group.read("checkRepeatedMsg"_L1, false).toBool();
    const quint32 amount = group.readCount("amountRepeatedMsg"_L1, 1);
    const quint32 maximum = group.readCount("maxRepeatedMsgCounter"_L1, 10);

    const std::lock_guard lock(state->guard);
    textFilters = filters;
    checkRepeatedMsg = check;
    amountRepeatedMsg = amount;
    maxRepeatedMsgCounter = maximum;
    return level;
}

/// Returns false when a value was refused or the file could not be opened. The channel then stays closed until a record
/// or the next load opens it.
bool Logger::applyFileChannel(Poco::FileChannel& channel, SettingsGroup& group)
{
    channel.close();

    if (group.contains("path"_L1)) {
        const QString path = group.storedText("path"_L1, logFilePath);
        Misc::checkDirectory(QFileInfo(path).absolutePath());
        channel.setProperty(Poco::FileChannel::PROP_PATH, path.toStdString());
    } else {
        channel.setProperty(Poco::FileChannel::PROP_PATH, logFilePath.toStdString());
        group.read("-path"_L1, logFilePath); // only tells the operator which path is in use
    }

    QLatin1StringView key = "path"_L1;
    QString value;
    state->latestLoad = State::Load::Refused;
    try {
        for (const ChainSetting& setting : fileChannelSettings()) {
            key = setting.key;
            value = group.readText(setting.key, setting.defaultValue);
            channel.setProperty(setting.property, value.toStdString());
        }
        state->latestLoad = State::Load::FileNotOpened;
        key = "path"_L1;
        value = QString::fromStdString(channel.getProperty(Poco::FileChannel::PROP_PATH));
        channel.open();
    } catch (...) {
        StandardOutput::printParagraph(u"Exception on creating logger"_s);
        group.report(key, value, Misc::currentExceptionText());
        return false;
    }
    state->latestLoad = State::Load::Applied;
    return true;
}

/// A refused value ends this stage only.
void Logger::applyFormat(Poco::PatternFormatter& formatter, SettingsGroup& group)
{
    QLatin1StringView key;
    QString value;
    try {
        for (const ChainSetting& setting : formatterSettings()) {
            key = setting.key;
            value = group.readText(setting.key, setting.defaultValue);
            formatter.setProperty(setting.property, value.toStdString());
        }
    } catch (...) {
        group.report(key, value, Misc::currentExceptionText());
        state->latestLoad = State::Load::Refused;
    }
}

/// Makes the links that are still missing, each of which takes over the logger's references to the ones below it, and
/// sets the level.
void Logger::completeChain(const QString& level)
{
    // Each link gets a reference of its own before ours is released, so that a failure in between loses nothing.
    state->link(asyncChannel, [this] {
        auto* made = new Poco::AsyncChannel(Poco::Channel::Ptr(fileChannel, true), Poco::Thread::PRIO_NORMAL);
        fileChannel->release();
        return made;
    });
    state->link(formattingChannel, [this] {
        auto* made = new Poco::FormattingChannel(Poco::Formatter::Ptr(patternFormatter, true),
                                                 Poco::Channel::Ptr(asyncChannel, true));
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
        return;
    }
    try {
        state->link(pocoLogger, [&] {
            auto& made = Poco::Logger::create(loggerName.toStdString(), Poco::Channel::Ptr(formattingChannel, true),
                                              Poco::Logger::parseLevel(levelName));
            formattingChannel->release();
            return &made;
        });
    } catch (...) {
        Misc::reportProblem(configFilePath(), u"no logger '"_s + loggerName + u"' with "_s + setting + u": "_s +
                                                  Misc::currentExceptionText());
        state->latestLoad = State::Load::Refused;
    }
}

} // namespace Zyr
