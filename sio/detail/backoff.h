#pragma once
// Delays between reconnection attempts.
// Thread affinity: none, unsynchronised (ReconnectPolicy owns one on the network thread).

#include <random>

#include "sio/value.h"

namespace halvora::sio::detail {

class Backoff {
public:
    Backoff(Seconds wait, Seconds waitMax, double randomizationFactor);

    // Delay before attempt `attempt` (1 for the first retry): none for the first, then `wait`
    // growing 1.5x per attempt, randomised by +/- the factor, never above `waitMax`.
    Seconds delay(int attempt);

private:
    Seconds wait_;
    Seconds waitMax_;
    double factor_;
    std::mt19937 random_;
};

}  // namespace halvora::sio::detail
