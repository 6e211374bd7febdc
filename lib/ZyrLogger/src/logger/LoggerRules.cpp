// How the rules are replaced, and when the former ones are freed.

#include "logger/LoggerRules.h"

#include <new>
#include <utility>

namespace Zyr {

void LoggerRules::replace(CompletionRules rules)
{
    auto made = std::make_unique<const CompletionRules>(std::move(rules));
    former.emplace_back();
    published.store(made.get());
    former.back().rules = std::exchange(owned, std::move(made));
    freeFormer();
}

/// Frees replaced rules once every use under way at the replacement has ended.
void LoggerRules::freeFormer() noexcept
try {
    for (Former& each : former) {
        if (!each.users)
            each.users = access.users();
    }
    former.remove_if([this](const Former& each) { return access.haveLeft(*each.users); });
} catch (const std::bad_alloc&) {
    // The next replacement tries again.
}

} // namespace Zyr
