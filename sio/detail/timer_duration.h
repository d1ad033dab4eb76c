#pragma once
// Configured durations as the network thread's timers take them.

#include <algorithm>
#include <chrono>

#include "sio/value.h"

namespace halvora::sio::detail {

inline std::chrono::steady_clock::duration timerDuration(Seconds seconds) {
    // Bounded, so that a huge configured value cannot overflow the clock's arithmetic.
    const Seconds bounded = std::clamp(seconds, Seconds(0), Seconds(365.0 * 24 * 3600));
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(bounded);
}

}  // namespace halvora::sio::detail
