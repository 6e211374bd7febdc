#pragma once

#include <string>

namespace Zyr {

class CallerThread;
class LogMessage;
class TextFilters;

/// Makes the text of a message's record: the rendered text, with what the message's level adds to it, in UTF-8, up to
/// the first NUL. False when the filters drop it, which see the rendered text alone.
///
/// `thread` is the calling one's and may be null. `text` is empty before.
bool completeText(LogMessage& message, const TextFilters& filters, CallerThread* thread, std::string& text);

} // namespace Zyr
