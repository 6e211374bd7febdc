#pragma once

#include "queue/LineBatch.h"
#include "store/LogPlace.h"
#include "system/ForkClosedFile.h"

#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <sys/uio.h>

namespace Zyr {

/// One open file that lines are appended to: regular, or a device, pipe or socket, which is only written to.
class AppendFile
{
public:
    /// Creates the file if it is missing. A pipe without a reader cannot be opened.
    std::error_code open(const std::string& path, CallWatch& watch);
    /// Creates a file beside a log, readable by its owner only; an existing one is an error.
    std::error_code create(const LogPlace& beside, const std::string& name, CallWatch& watch);
    void close(CallWatch& watch) noexcept
    {
        file.close(watch);
        place.reset(); // an open directory would keep the file system mounted
    }

    bool isOpen() const noexcept { return bool(file); }
    bool isRegular() const noexcept { return S_ISREG(status.st_mode); }
    int descriptor() const noexcept { return file.get(); }

    /// As of the opening or the last look.
    const struct stat& lastStatus() const noexcept { return status; }
    bool isSame(const AppendFile& other) const noexcept;

    /// Where open() found it; null when it must not be moved: it is not regular, or was opened through /proc.
    const std::shared_ptr<const LogPlace>& foundAt() const noexcept { return place; }

    /// Checks whether that path still leads to the file: PathError::NotThisFile if not, other errors if that is
    /// unknown.
    std::error_code findAgain(const std::string& path, CallWatch& watch);
    /// The same for a name beside the log.
    std::error_code findAgain(const LogPlace& beside, const std::string& name, CallWatch& watch);

    /// Takes the first writer's lock. False when somebody else has it. Always true on a file system without locks.
    bool lock(CallWatch& watch) noexcept;

    /// For the other writers, around each append: keeps the file from being compressed. False when it is being
    /// compressed: then it is an archive by now.
    bool holdOffCompression(CallWatch& watch) noexcept;
    void allowCompression(CallWatch& watch) noexcept;

    struct Appended
    {
        std::size_t bytes = 0;
        std::error_code error;
    };

    /// Appends the batch's bytes from offset `from` to `to`, in writes of whole lines: 256 KiB, or one that is longer.
    Appended append(const LineBatch& batch, std::size_t from, std::size_t to, CallWatch& watch) noexcept;
    std::error_code endLine(CallWatch& watch) noexcept;
    /// Whether the file ends with a line end. True also while somebody else is appending, who will end the line.
    bool endsInLine(CallWatch& watch) const noexcept;

    /// Truncates the file by the last `bytes` written, unless somebody else has appended since.
    bool cutBack(std::size_t bytes, CallWatch& watch) noexcept;

    std::error_code synchronize(CallWatch& watch) noexcept;

private:
    std::error_code readStatus(CallWatch& watch);
    std::error_code compare(const std::error_code& error, const struct stat& now, CallWatch& watch) noexcept;
    ssize_t write(std::span<iovec> pieces, std::chrono::seconds limit, CallWatch& watch) const noexcept;
    bool isBeingWritten(CallWatch& watch) const noexcept;

    ForkClosedFile file;
    struct stat status = {};
    std::shared_ptr<const LogPlace> place;
};

} // namespace Zyr
