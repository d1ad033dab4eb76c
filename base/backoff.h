#pragma once
// Delays between reconnection attempts: the Socket.IO client's and the session connections'
// rebuilds. Thread affinity: none, unsynchronised (each owner keeps one on its own thread).

#include <chrono>
#include <random>

namespace halvora {

class Backoff {
public:
    using Seconds = std::chrono::duration<double>;

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

}  // namespace halvora
