// What a listener gets of a record.

#pragma once

#include <QtCore/QString>

namespace Zyr {

class LinePattern;
class PocoMessage;

/// A record as listeners get it, made once for all of them.
struct ListenerRecord
{
    /// `pattern` is the one of the file's lines; the priority's name is taken from its settings.
    ListenerRecord(const PocoMessage& record, const LinePattern& pattern);

    const QString priority;
    const QString time;
    const QString text;
    const QString line;
};

} // namespace Zyr
