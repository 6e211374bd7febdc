#pragma once

#include "settings/FileSettings.h"
#include "store/ActiveFile.h"
#include "store/LineStore.h"
#include "store/rotation/Rotation.h"

#include <memory>

namespace Zyr {

/// The log file and its archives, used by the worker thread only.
///
/// It has an ActiveFile (which file that is), which has a LineAppender (its bytes and lines), which has an AppendFile
/// (the open file); and a Rotation, which has the Archives.
class LogFile final : public LineStore
{
public:
    explicit LogFile(CallWatch& watch);
    static std::unique_ptr<LineStore> make(CallWatch& watch) { return std::make_unique<LogFile>(watch); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void apply(Change& change) override;
    Written write(const LineBatch& batch) override;
    bool isInLine() const noexcept override { return active.isInLine(); }
    Maintenance maintenanceDue() const noexcept override;
    void maintain() noexcept override;
    void close() noexcept override;

private:
    void configure(FileSettings wanted);
    /// If `opened` is not open, an earlier call has adopted it before it threw.
    void adopt(AppendFile&& opened, bool rotateFirst);

    FileSettings settings;
    ActiveFile active;
    Rotation rotation;
};

} // namespace Zyr
