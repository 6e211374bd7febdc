// The texts that listeners get: priority, time and line of a record.

#include "logger/ListenerRecord.h"

#include "base/LineBuffer.h"
#include "line/CalendarText.h"
#include "line/FieldWriter.h"
#include "line/LinePattern.h"

#include <ZyrLogger/PocoMessage.h>

#include <QtCore/QDateTime>

#include <cstdint>
#include <limits>
#include <string_view>

namespace Zyr {

using namespace Qt::StringLiterals;

namespace {

QString toQString(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

/// The entry of that number, from 1 on; blanks belong to it.
QString priorityName(std::string_view names, int priority)
{
    for (int number = 1; priority > 0; ++number) {
        const std::size_t comma = names.find(',');
        if (number == priority)
            return toQString(names.substr(0, comma));
        if (comma == names.npos)
            break;
        names.remove_prefix(comma + 1);
    }
    return u"?"_s;
}

QString formatted(const PocoMessage& record, const LinePattern& pattern)
{
    LineBuffer line;
    pattern.format(record, line);
    return toQString(line.view());
}

/// Local, as Qt writes it in ISO 8601 with milliseconds. Qt itself takes longer than all the rest of a record. Made of
/// a pattern's fields, but no pattern, which would take the place of the file's in what a thread keeps of a second.
QString timeText(const Poco::Timestamp& time)
{
    const qint64 milliseconds = time.epochMicroseconds() / 1000;
    constexpr qint64 fourDigitYears = std::numeric_limits<std::int32_t>::max();
    if (milliseconds < 0 || milliseconds / 1000 > fourDigitYears)
        return QDateTime::fromMSecsSinceEpoch(milliseconds).toString(Qt::ISODateWithMs);
    const CalendarText& second = CalendarText::of(milliseconds / 1000, true);
    LineBuffer text;
    FieldWriter out(text, sizeof "yyyy-mm-ddThh:mm:ss.zzz" + FieldWriter::copiedAtOnce);
    out.fixed(second.year());
    const struct
    {
        char before;
        const char (&digits)[2];
    } pairs[] = {
        {'-', second.month}, {'-', second.day}, {'T', second.hour}, {':', second.minute}, {':', second.secondOfMinute}};
    for (const auto& pair : pairs) {
        out.fixed({&pair.before, 1});
        out.digits(pair.digits);
    }
    out.fixed(".");
    out.fraction(std::uint32_t(milliseconds % 1000), 3);
    out.finish();
    return QString::fromLatin1(text.view().data(), static_cast<qsizetype>(text.view().size()));
}

} // namespace

ListenerRecord::ListenerRecord(const PocoMessage& record, const LinePattern& pattern)
    : priority(priorityName(pattern.source().priorityNames, record.getPriority()))
    , time(timeText(record.getTime()))
    , text(toQString(record.getText()))
    , line(formatted(record, pattern))
{
}

} // namespace Zyr
