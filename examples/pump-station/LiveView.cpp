// One coloured line on standard output for each record.

#include "LiveView.h"

#include <cstdio>
#include <utility>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QLatin1StringView colourOf(const QString& priority)
{
    static const bool wanted = !qEnvironmentVariableIsSet("NO_COLOR") &&
                               (isatty(STDOUT_FILENO) || qEnvironmentVariableIsSet("CLICOLOR_FORCE"));
    static constexpr std::pair<QLatin1StringView, QLatin1StringView> colours[] = {
        {"fatal"_L1, "\033[1;97;41m"_L1}, {"panic"_L1, "\033[1;31m"_L1}, {"error"_L1, "\033[31m"_L1},
        {"warn"_L1, "\033[33m"_L1},       {"notice"_L1, "\033[36m"_L1},  {"info"_L1, "\033[32m"_L1},
        {"debug"_L1, "\033[90m"_L1},
    };
    for (const auto& [name, colour] : colours) {
        if (wanted && name == priority)
            return colour;
    }
    return {};
}

} // namespace

LiveView::LiveView(Zyr::Logger& watchedLogger, QString shownName)
    : logger(watchedLogger)
    , name(std::move(shownName))
{
    logger.registerLogListener(this);
}

LiveView::~LiveView()
{
    logger.unregisterLogListener(this);
}

/// May be called on several threads at once, so the line goes out in one piece.
void LiveView::handleMessage(QString priority, QString time, QString text)
{
    if (priority == "trace"_L1)
        return;
    const QLatin1StringView colour = colourOf(priority);
    const QString line = time.mid(11) + u' ' + colour + priority.leftJustified(7) + name.leftJustified(6) + text +
                         (colour.isEmpty() ? u"\n"_s : u"\033[0m\n"_s);
    std::fputs(line.toUtf8().constData(), stdout);
    std::fflush(stdout);
}
