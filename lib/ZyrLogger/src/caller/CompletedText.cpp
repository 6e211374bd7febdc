// From a message to the text of its record: rendering, filters, and what its level adds.

#include "caller/CompletedText.h"

#include "base/LineBuffer.h"
#include "caller/CallerThread.h"
#include "text/TextFilters.h"
#include "text/TextRenderer.h"

#include <ZyrLogger/LogMessage.h>

#include <QtCore/QFileInfo>

#include <algorithm>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

/// What the level puts before the text.
void appendMark(unsigned char level, LineBuffer& line)
{
    if (level <= Trace)
        return;
    if (level == System)
        line.append("<SYS> ");
    else if (level == Todo)
        line.append("<TODO> ");
    else
        line.append("Unknown log level " + std::to_string(level) + " :");
}

QString sourceOf(const LogMessage& message)
{
    return u" ["_s + QFileInfo(message.file).fileName() + u", Line "_s + QString::number(message.line) + u']';
}

bool isOwnType(const QVariant& value)
{
    return value.metaType().id() >= QMetaType::User;
}

} // namespace

bool hasOwnConversions(const LogMessage& message)
{
    return (message.args && std::any_of(message.args->cbegin(), message.args->cend(), isOwnType)) ||
           (message.topics && std::any_of(message.topics->cbegin(), message.topics->cend(), isOwnType));
}

bool completeText(LogMessage& message, const TextFilters& filters, CallerThread* thread, std::string& text)
{
    LineBuffer line;
    appendMark(message.level, line);
    const std::size_t markSize = line.view().size();
    if (thread && renderText(message, thread->numbers, line)) {
        if (!filters.isEmpty() && !filters.pass(line.view().substr(markSize)))
            return false;
        text = line.view();
        if (message.level == Emerg)
            text += sourceOf(message).toUtf8().constData();
        return true;
    }

    QString rendered = message.getStr();
    if (!filters.pass(rendered))
        return false;
    if (message.level == Emerg)
        rendered += sourceOf(message);
    text = line.view();
    text += rendered.toUtf8().constData();
    return true;
}

} // namespace Zyr
