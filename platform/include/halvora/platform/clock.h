#pragma once
// Time sources for the main queue. Tests drive a ManualClock so that delays of seconds or
// minutes run deterministically and instantly.

#include <chrono>
#include <mutex>

namespace halvora::platform {

using Duration = std::chrono::steady_clock::duration;
using TimePoint = std::chrono::steady_clock::time_point;

class Clock {
public:
    virtual ~Clock() = default;
    virtual TimePoint now() const = 0;
    // True when time only moves by advance(): a RunLoop on such a clock never sleeps.
    virtual bool isManual() const { return false; }
};

class SystemClock final : public Clock {
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
};

// Starts at an arbitrary fixed point and moves only when told to.
class ManualClock final : public Clock {
public:
    TimePoint now() const override;
    bool isManual() const override { return true; }
    void advance(Duration by);

private:
    mutable std::mutex mutex_;
    TimePoint now_{std::chrono::hours(1)};
};

}  // namespace halvora::platform
