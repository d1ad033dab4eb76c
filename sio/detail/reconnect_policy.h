#pragma once
// Whether and when to try again after a failed or lost connection: counts the attempts since the
// namespace was last connected, and waits the backoff delay before each.
// Thread affinity: network thread only.

#include <functional>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "sio/config.h"
#include "base/backoff.h"

namespace halvora::sio::detail {

class ReconnectPolicy {
public:
    ReconnectPolicy(boost::asio::io_context& context, const Config& config);

    bool enabled() const { return enabled_; }
    // The configured number of attempts is used up.
    bool exhausted() const;
    int attempts() const { return attempts_; }
    // Counts from zero again (a new session, or the namespace connected); returns the old count.
    int restart();
    // Counts one more attempt and runs `due` with its number after that attempt's delay, unless
    // cancel() comes first.
    void schedule(std::function<void(int attempt)> due);
    void cancel();

private:
    const bool enabled_;
    const int maxAttempts_;
    int attempts_ = 0;
    halvora::Backoff backoff_;
    boost::asio::steady_timer timer_;
};

}  // namespace halvora::sio::detail
