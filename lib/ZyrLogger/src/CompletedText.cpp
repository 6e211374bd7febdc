#include "CompletedText.h"

#include "TextFilters.h"
#include "caller/CallerThread.h"
#include "chain/format/LineBuffer.h"
#include "rendering/TextRenderer.h"

#include <ZyrLogger/LogMessage.h>

#include <QtCore/QFileInfo>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

/// What goes before the text.
QByteArray markOf(unsigned char level)
{
    if (level == System)
        return "<SYS> "_qba;
    if (level == Todo)
        return "<TODO> "_qba;
    return level <= Trace ? QByteArray() : "Unknown log level "_qba + QByteArray::number(level) + " :"_qba;
}

QString sourceOf(const LogMessage& message)
{
    return u" ["_s + QFileInfo(message.file).fileName() + u", Line "_s + QString::number(message.line) + u']';
}

} // namespace

bool completeText(LogMessage& message, const TextFilters& filters, CallerThread* thread, std::string& text)
{
    const QByteArray mark = markOf(message.level);
    LineBuffer line;
    line.append({mark.constData(), std::size_t(mark.size())});
    if (thread && renderText(message, thread->numbers, line)) {
        if (!filters.isEmpty() && !filters.pass(line.view().substr(std::size_t(mark.size()))))
            return false;
        text = line.view();
        if (message.level == Emerg)
            text += sourceOf(message).toUtf8().constData();
        return true;
    }

    const QString rendered = message.getStr();
    if (!filters.pass(rendered))
        return false;
    const QString source = message.level == Emerg ? sourceOf(message) : QString();
    text = (QString::fromLatin1(mark) + rendered + source).toUtf8().constData();
    return true;
}

} // namespace Zyr
