// What completion goes by, and its replacement while threads log.

#pragma once

#include "chain/ChainAccess.h"
#include "text/TextFilters.h"

#include <QtCore/qglobal.h>

#include <atomic>
#include <list>
#include <memory>
#include <optional>

namespace Zyr {

/// The settings of repeat suppression at one moment.
struct RepeatLimits
{
    quint32 remembered; ///< how many distinct records
    quint32 repeats;    ///< of each, before a summary is due
};

/// As one piece that no longer changes: a thread that logs finds all of it or none.
struct CompletionRules
{
    TextFilters filters;
    RepeatLimits limits;
    bool suppressRepeats;
    bool hasListeners;
};

/// The current rules of a logger. Reading takes no lock; replace() and what it changes need LoggerChain::fieldsMutex.
class LoggerRules
{
public:
    explicit LoggerRules(const ChainAccess& itsAccess)
        : access(itsAccess)
    {
    }
    LoggerRules(const LoggerRules&) = delete;
    LoggerRules& operator=(const LoggerRules&) = delete;

    /// Valid for the calling thread during its use of the chain. There are none before the first replace().
    const CompletionRules& current() const noexcept { return *published.load(); }

    /// Where it throws, nothing has changed.
    void replace(CompletionRules rules);

private:
    void freeFormer() noexcept;

    struct Former
    {
        std::unique_ptr<const CompletionRules> rules;
        std::optional<ChainAccess::Users> users; ///< who may be going by them
    };

    const ChainAccess& access;
    std::atomic<const CompletionRules*> published = nullptr;
    std::unique_ptr<const CompletionRules> owned; ///< the published ones
    std::list<Former> former;
};

} // namespace Zyr
