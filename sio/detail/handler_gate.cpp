#include "sio/detail/handler_gate.h"

#include <algorithm>

namespace halvora::sio::detail {

void HandlerGate::run(const std::function<void()>& task) {
    const auto self = std::this_thread::get_id();
    {
        std::lock_guard lock(mutex_);
        if (!open_) return;
        running_.push_back(self);
    }
    struct Leave {
        HandlerGate& gate;
        std::thread::id self;
        ~Leave() {
            std::lock_guard lock(gate.mutex_);
            gate.running_.erase(std::find(gate.running_.begin(), gate.running_.end(), self));
            gate.finished_.notify_all();
        }
    } leave{*this, self};
    task();
}

void HandlerGate::close(bool waitForRunning) {
    std::unique_lock lock(mutex_);
    open_ = false;
    if (!waitForRunning) return;
    const auto self = std::this_thread::get_id();
    finished_.wait(lock, [&] {
        return std::all_of(running_.begin(), running_.end(),
                           [&](std::thread::id id) { return id == self; });
    });
}

bool HandlerGate::open() const {
    std::lock_guard lock(mutex_);
    return open_;
}

}  // namespace halvora::sio::detail
