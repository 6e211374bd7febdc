#pragma once

#include <Poco/Message.h>

namespace Zyr {

/// The record of one log entry, as Logger::writeMsgToLog() takes it and POCO's channels get it.
///
/// It adds no data to Poco::Message, only what tells a repeat: records are equal when text and priority are, and are
/// ordered by text (bytewise), then priority.
///
/// Like its base it holds a bare pointer to the name of the source file, which must outlive it.
class PocoMessage : public Poco::Message
{
public:
    using Poco::Message::Message;

    /// @name Comparisons
    /// @{

    /// By text, then priority; time, source and thread play no part.
    friend bool operator==(const PocoMessage& a, const PocoMessage& b)
    {
        return a.getText() == b.getText() && a.getPriority() == b.getPriority();
    }
    friend bool operator!=(const PocoMessage& a, const PocoMessage& b) { return !(a == b); }
    friend bool operator<(const PocoMessage& a, const PocoMessage& b)
    {
        const int order = a.getText().compare(b.getText());
        return order != 0 ? order < 0 : a.getPriority() < b.getPriority();
    }
    /// @}
};

} // namespace Zyr
