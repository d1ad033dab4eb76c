#pragma once
// The host's UI thread, seen as a queue. All library state lives on it.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "halvora/platform/clock.h"

namespace halvora::platform {

// Shared state of one delayed task; queue implementations check it before running the task.
struct TimerState {
    std::atomic<bool> cancelled{false};
};

// Cancels a delayed or repeating task. Copies share the task; a default handle cancels nothing.
// Cancelling after the task ran, or twice, is harmless.
class TimerHandle {
public:
    TimerHandle() = default;
    explicit TimerHandle(std::shared_ptr<TimerState> state);

    void cancel() const;
    bool isCancelled() const;
    explicit operator bool() const { return static_cast<bool>(state_); }

private:
    std::shared_ptr<TimerState> state_;
};

class MainQueue {
public:
    using Task = std::function<void()>;

    virtual ~MainQueue() = default;

    // Runs the task on the main thread, after whatever is already queued. Callable from any thread.
    virtual void post(Task task) = 0;
    // Runs the task once, `delay` from now, unless cancelled first. Callable from any thread.
    virtual TimerHandle postAfter(Duration delay, Task task) = 0;
    // Runs the task every `interval` until cancelled. Callable from any thread.
    virtual TimerHandle repeat(Duration interval, Task task) = 0;
    // True when called on the thread that runs this queue's tasks.
    virtual bool isCurrentThread() const = 0;
};

}  // namespace halvora::platform
