#pragma once

#include "settings/FileSettings.h"
#include "store/ActiveFile.h"
#include "store/LineStore.h"
#include "store/rotation/Rotation.h"

namespace Zyr {

/// The log file and its archives, as the worker thread keeps them.
class LogFile final : public LineStore
{
public:
    explicit LogFile(CallWatch& watch);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void apply(Change& change) override;
    Written write(const LineBatch& batch) override;
    bool isInLine() const noexcept override { return active.isInLine(); }
    Upkeep upkeep() const noexcept override;
    void keepUp() noexcept override { compressSlice(); }
    void close() noexcept override;

    // The parts of apply().
    void configure(FileSettings wanted);
    /// What is not open any more was adopted by a call that threw.
    void adopt(AppendFile&& opened, bool beginAnew);
    void lookAgain() noexcept { active.lookAgain(); }

    // The parts of upkeep() and keepUp().
    bool canCompress() const noexcept { return upkeep() != Upkeep::None; }
    bool mustCompressFirst() const noexcept { return upkeep() == Upkeep::GoesFirst; }
    void compressSlice() noexcept;

private:
    FileSettings settings;
    ActiveFile active;
    Rotation rotation;
};

} // namespace Zyr
