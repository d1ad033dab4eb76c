#pragma once
// A MainQueue for hosts without a UI toolkit (the command-line tool, tests). The thread that calls
// run() becomes the main thread. On a ManualClock, delayed tasks fire only when the test advances time.

#include <functional>
#include <memory>

#include "halvora/platform/main_queue.h"

namespace halvora::platform {

class RunLoop final : public MainQueue {
public:
    // With no clock, a SystemClock is used.
    explicit RunLoop(std::shared_ptr<Clock> clock = nullptr);
    ~RunLoop() override;
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    void post(Task task) override;
    TimerHandle postAfter(Duration delay, Task task) override;
    TimerHandle repeat(Duration interval, Task task) override;
    bool isCurrentThread() const override;

    // Runs tasks until quit(). On a manual clock, returns when nothing is runnable without
    // advancing time (so a test cannot hang waiting for a timer nobody will advance to).
    void run();
    // Runs tasks until `done` returns true or `timeout` (on this loop's clock) passes.
    // Returns done()'s final value. On a manual clock it advances time to the next timer when idle.
    bool runUntil(const std::function<bool()>& done, Duration timeout);
    // Asks run()/runUntil() to return after the current task. Callable from any thread.
    void quit();

    // Runs every task that is due now, including tasks those tasks post for now. Returns how many ran.
    std::size_t runPending();
    // Manual clock only: moves time forward by `by`, running each timer at its due time, in order.
    void advance(Duration by);

    const Clock& clock() const;
    // Number of delayed or repeating tasks still scheduled and not cancelled.
    std::size_t pendingTimerCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvora::platform
