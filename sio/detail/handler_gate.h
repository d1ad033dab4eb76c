#pragma once
// Lets handler tasks through until closed. A manager hands one to every task it queues on an
// executor, so that nothing runs once it was disconnected or destroyed, however long the executor
// keeps the task.
// Thread affinity: any thread (synchronised).

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace halvora::sio::detail {

class HandlerGate {
public:
    // Runs `task` now unless the gate is closed.
    void run(const std::function<void()>& task);
    // Closes the gate. With `waitForRunning`, also waits for tasks running on other threads to
    // finish (a task running on the calling thread - the one closing - is not waited for).
    void close(bool waitForRunning);
    bool open() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable finished_;
    bool open_ = true;
    std::vector<std::thread::id> running_;
};

}  // namespace halvora::sio::detail
