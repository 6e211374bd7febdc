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

/// One open file that lines are appended to: regular, or a device, pipe or socket, which is written and nothing else.
class AppendFile
{
public:
    /// Creates the file if need be. A pipe that nobody reads cannot be opened.
    std::error_code open(const std::string& path, CallWatch& watch);
    /// Creates it beside a log, for nobody else to read; one that is there already is an error.
    std::error_code create(const LogPlace& beside, const std::string& name, CallWatch& watch);
    void close(CallWatch& watch) noexcept
    {
        file.close(watch);
        place.reset(); // and the file system can be unmounted
    }

    bool isOpen() const noexcept { return bool(file); }
    bool isRegular() const noexcept { return S_ISREG(status.st_mode); }
    int descriptor() const noexcept { return file.get(); }

    /// As it was when the file was opened or last looked at.
    const struct stat& lastStatus() const noexcept { return status; }
    bool isSame(const AppendFile& other) const noexcept;

    /// Where open() found it; null when it is not to be moved from there: it is not regular, or the path leads to a
    /// descriptor of a process.
    const std::shared_ptr<const LogPlace>& foundAt() const noexcept { return place; }

    /// Looks whether the file is still the one under that path: PathError::NotThisFile where it is not, other errors
    /// where that cannot be told.
    std::error_code findAgain(const std::string& path, CallWatch& watch);
    /// The same for a name beside the log.
    std::error_code findAgain(const LogPlace& beside, const std::string& name, CallWatch& watch);

    /// The lock of the one writer that rotates. False when somebody else has it; a file system without locks counts as
    /// ours.
    bool lock(CallWatch& watch) noexcept;

    /// For the other writers, around each append: nobody compresses the file meanwhile. False when somebody does, so
    /// that it is an archive by now.
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
    /// Also when somebody else has not ended the last one yet.
    bool endsInLine(CallWatch& watch) const noexcept;

    /// Takes the last `bytes` written back, unless somebody else has written behind them.
    bool cutBack(std::size_t bytes, CallWatch& watch) noexcept;

    std::error_code synchronize(CallWatch& watch) noexcept;

private:
    std::error_code look(CallWatch& watch);
    std::error_code compare(const std::error_code& error, const struct stat& now, CallWatch& watch) noexcept;
    ssize_t write(std::span<iovec> pieces, std::chrono::seconds limit, CallWatch& watch) const noexcept;
    bool isBeingWritten(CallWatch& watch) const noexcept;

    ForkClosedFile file;
    struct stat status = {};
    std::shared_ptr<const LogPlace> place;
};

} // namespace Zyr
