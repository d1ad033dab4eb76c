#include "halvora/platform/clock.h"

#include <cstdio>
#include <cstdlib>

namespace halvora::platform {

TimePoint ManualClock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void ManualClock::advance(Duration by) {
    // A steady clock never goes back; a negative step is a bug in the caller, not a request.
    if (by < Duration::zero()) {
        std::fputs("halvora: ManualClock::advance called with a negative duration\n", stderr);
        std::abort();
    }
    std::lock_guard lock(mutex_);
    now_ += by;
}

}  // namespace halvora::platform
