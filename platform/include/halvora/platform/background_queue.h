#pragma once
// A serial queue on one worker thread, for work that must stay off the main thread
// (building and emitting frame records).

#include <functional>
#include <memory>

namespace halvora::platform {

class BackgroundQueue {
public:
    using Task = std::function<void()>;

    BackgroundQueue();
    // Finishes the tasks already queued, then joins the worker.
    ~BackgroundQueue();
    BackgroundQueue(const BackgroundQueue&) = delete;
    BackgroundQueue& operator=(const BackgroundQueue&) = delete;

    // Runs tasks one at a time, in the order posted. Callable from any thread.
    void post(Task task);
    // Blocks until every task posted before this call has run (tests, shutdown).
    void drain();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvora::platform
