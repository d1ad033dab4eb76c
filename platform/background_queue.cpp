#include "halvora/platform/background_queue.h"

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace halvora::platform {

struct BackgroundQueue::Impl {
    std::mutex mutex;
    std::condition_variable wake;     // the worker: a task arrived, or stop
    std::condition_variable drained;  // drain(): the worker finished another task
    std::deque<Task> tasks;
    std::uint64_t posted = 0;    // tasks ever posted
    std::uint64_t finished = 0;  // tasks ever run to completion
    bool stopping = false;
    // Set when the queue is destroyed from one of its own tasks: the worker cannot join itself,
    // so it finishes the queue and then deletes this Impl.
    bool ownedByWorker = false;
    std::thread worker;

    void runWorker() {
        std::unique_lock lock(mutex);
        for (;;) {
            wake.wait(lock, [this] { return stopping || !tasks.empty(); });
            if (tasks.empty()) break;  // stopping, and nothing left to finish
            Task task = std::move(tasks.front());
            tasks.pop_front();
            lock.unlock();
            task();
            task = nullptr;  // captures are released before drain() is told the task is done
            lock.lock();
            ++finished;
            drained.notify_all();
        }
        const bool selfOwned = ownedByWorker;
        lock.unlock();
        if (selfOwned) delete this;
    }
};

BackgroundQueue::BackgroundQueue() : impl_(std::make_unique<Impl>()) {
    impl_->worker = std::thread([impl = impl_.get()] { impl->runWorker(); });
}

BackgroundQueue::~BackgroundQueue() {
    const bool onWorker = std::this_thread::get_id() == impl_->worker.get_id();
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = true;
        impl_->ownedByWorker = onWorker;
    }
    impl_->wake.notify_all();
    if (onWorker) {
        impl_->worker.detach();
        (void)impl_.release();  // the worker deletes it once the queue is empty
    } else {
        impl_->worker.join();
    }
}

void BackgroundQueue::post(Task task) {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->tasks.push_back(std::move(task));
        ++impl_->posted;
    }
    impl_->wake.notify_one();
}

void BackgroundQueue::drain() {
    if (std::this_thread::get_id() == impl_->worker.get_id()) {
        // The calling task itself would have to finish first: this can only deadlock.
        std::fputs("halvora: BackgroundQueue::drain called from one of its own tasks\n", stderr);
        std::abort();
    }
    std::unique_lock lock(impl_->mutex);
    const std::uint64_t target = impl_->posted;
    impl_->drained.wait(lock, [&] { return impl_->finished >= target; });
}

}  // namespace halvora::platform
