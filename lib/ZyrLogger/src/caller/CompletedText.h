#pragma once

#include <string>

namespace Zyr {

class CallerThread;
class LogMessage;
class TextFilters;

/// Whether values of the message are of the application's own types. Their conversions to text may be, too, and count
/// their calls, log or throw: they take place once for each value, in the order of the steps that define rendering.
bool hasOwnConversions(const LogMessage& message);

/// Makes the text of a message's record: the rendered text, with what the message's level adds to it, in UTF-8, up to
/// the first NUL. False when the filters drop it, which see the rendered text alone.
///
/// `thread` is the calling one's; where it is null, LogMessage::getStr() renders. `text` is empty before.
bool completeText(LogMessage& message, const TextFilters& filters, CallerThread* thread, std::string& text);

} // namespace Zyr
