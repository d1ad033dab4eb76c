#include "sio/detail/reconnect_policy.h"

#include <utility>

#include "sio/detail/timer_duration.h"

namespace halvora::sio::detail {

ReconnectPolicy::ReconnectPolicy(boost::asio::io_context& context, const Config& config)
    : enabled_(config.reconnects),
      maxAttempts_(config.reconnectAttempts),
      backoff_(config.reconnectWait, config.reconnectWaitMax, config.randomizationFactor),
      timer_(context) {}

bool ReconnectPolicy::exhausted() const { return maxAttempts_ >= 0 && attempts_ >= maxAttempts_; }

int ReconnectPolicy::restart() { return std::exchange(attempts_, 0); }

void ReconnectPolicy::schedule(std::function<void(int attempt)> due) {
    const int attempt = ++attempts_;
    timer_.expires_after(timerDuration(backoff_.delay(attempt)));
    timer_.async_wait([attempt, due = std::move(due)](boost::system::error_code ec) {
        if (!ec) due(attempt);
    });
}

void ReconnectPolicy::cancel() { timer_.cancel(); }

}  // namespace halvora::sio::detail
