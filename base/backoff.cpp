#include "base/backoff.h"

#include <algorithm>
#include <cmath>

namespace halvora {

Backoff::Backoff(Seconds wait, Seconds waitMax, double randomizationFactor)
    : wait_(std::max(wait, Seconds(0))),
      waitMax_(std::max(waitMax, Seconds(0))),
      factor_(std::clamp(std::isfinite(randomizationFactor) ? randomizationFactor : 0.0, 0.0, 1.0)),
      random_(std::random_device{}()) {}

Backoff::Seconds Backoff::delay(int attempt) {
    if (attempt <= 1) return Seconds(0);
    // Beyond ~100 steps the growth only overflows; the cap has long been reached.
    const double growth = std::pow(1.5, std::min(attempt - 2, 100));
    double seconds = wait_.count() * growth;
    if (factor_ > 0) {
        std::uniform_real_distribution<double> spread(-factor_, factor_);
        seconds *= 1.0 + spread(random_);
    }
    return std::clamp(Seconds(seconds), Seconds(0), waitMax_);
}

}  // namespace halvora
