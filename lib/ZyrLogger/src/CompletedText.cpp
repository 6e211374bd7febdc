#include "CompletedText.h"

#include "TextFilters.h"

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

bool completeText(LogMessage& message, const TextFilters& filters, CallerThread*, std::string& text)
{
    const QByteArray mark = markOf(message.level);
    const QString rendered = message.getStr();
    if (!filters.pass(rendered))
        return false;
    const QString source = message.level == Emerg ? sourceOf(message) : QString();
    text = (QString::fromLatin1(mark) + rendered + source).toUtf8().constData();
    return true;
}

} // namespace Zyr
