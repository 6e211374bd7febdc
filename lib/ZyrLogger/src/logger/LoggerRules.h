#pragma once

#include "text/TextFilters.h"

#include <ZyrLogger/Logger.h>

namespace Zyr {

/// The settings of repeat suppression at one moment.
struct Logger::RepeatLimits
{
    quint32 remembered; ///< how many distinct records
    quint32 repeats;    ///< of each, before a summary is due
};

/// What completion goes by, as one piece that no longer changes: a thread that logs finds all of it or none.
struct Logger::Rules
{
    TextFilters filters;
    RepeatLimits limits;
    bool suppressRepeats;
    bool hasListeners;
};

} // namespace Zyr
