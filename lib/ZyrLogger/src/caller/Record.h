#pragma once

#include <ZyrLogger/PocoMessage.h>

#include <optional>
#include <string>

namespace Zyr {

class CallerThread;

/// The record of the entry that a thread is completing. It is one that the thread keeps, since making a Poco::Message
/// asks the system for the process's number, and allocates. A new one is made where that one is in use: an argument's
/// conversion, a channel or a listener of the application has logged this entry while it was completing that one.
class Record
{
public:
    /// The part that a thread keeps.
    class Kept
    {
    public:
        /// The child has another process number.
        void afterForkInChild() noexcept { outdated = true; }

    private:
        friend class Record;

        void renew();

        std::optional<PocoMessage> message;
        std::string text;
        bool lent = false;
        bool outdated = false;
    };

    /// With process and thread as they are. `thread` may be null.
    Record(CallerThread* thread, const std::string& source);
    ~Record();
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    PocoMessage& message() noexcept { return *used->message; }

    /// Empty at first; becomes the record's by useText().
    std::string& text() noexcept { return used->text; }
    void useText() { used->message->setText(used->text); }

private:
    Kept own;
    Kept* used;
};

} // namespace Zyr
