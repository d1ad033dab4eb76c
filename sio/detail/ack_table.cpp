#include "sio/detail/ack_table.h"

#include "sio/detail/timer_duration.h"

namespace halvora::sio::detail {

void AckTable::add(std::uint64_t id, Entry entry, Seconds timeout,
                   std::function<void(std::uint64_t id)> expired) {
    Pending pending{std::move(entry), nullptr};
    if (timeout > Seconds(0)) {
        pending.timer = std::make_unique<boost::asio::steady_timer>(context_, timerDuration(timeout));
        pending.timer->async_wait([id, expired = std::move(expired)](boost::system::error_code ec) {
            if (!ec) expired(id);
        });
    }
    pending_.emplace(id, std::move(pending));
}

std::optional<AckTable::Entry> AckTable::take(std::uint64_t id) {
    auto found = pending_.find(id);
    if (found == pending_.end()) return std::nullopt;
    if (found->second.timer) found->second.timer->cancel();
    Entry entry = std::move(found->second.entry);
    pending_.erase(found);
    return entry;
}

void AckTable::clear() {
    for (auto& [id, pending] : pending_) {
        if (pending.timer) pending.timer->cancel();
    }
    pending_.clear();
}

}  // namespace halvora::sio::detail
