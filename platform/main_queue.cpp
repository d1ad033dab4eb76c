#include "halvora/platform/main_queue.h"

#include <utility>

namespace halvora::platform {

TimerHandle::TimerHandle(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}

void TimerHandle::cancel() const {
    if (state_) state_->cancelled.store(true);
}

bool TimerHandle::isCancelled() const {
    return state_ && state_->cancelled.load();
}

}  // namespace halvora::platform
