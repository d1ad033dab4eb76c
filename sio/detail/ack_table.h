#pragma once
// The emits waiting for the server's acknowledgement, each with its optional timeout.
// Thread affinity: network thread only.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "sio/socket.h"

namespace halvora::sio::detail {

class AckTable {
public:
    struct Entry {
        // The epoch of the emit: its callback is not delivered after disconnect().
        std::uint64_t epoch;
        std::shared_ptr<const Socket::AckCallback> callback;
    };

    explicit AckTable(boost::asio::io_context& context) : context_(context) {}

    // Waits for the acknowledgement `id`. With a positive timeout, `expired(id)` runs on the
    // network thread when it passes, unless the entry was taken or cleared before.
    void add(std::uint64_t id, Entry entry, Seconds timeout,
             std::function<void(std::uint64_t id)> expired);
    // Removes and returns the entry of `id`; none when there is none (answered, expired, or
    // never asked for).
    std::optional<Entry> take(std::uint64_t id);
    // Forgets every entry; their callbacks never run.
    void clear();

private:
    struct Pending {
        Entry entry;
        std::unique_ptr<boost::asio::steady_timer> timer;
    };

    boost::asio::io_context& context_;
    std::map<std::uint64_t, Pending> pending_;
};

}  // namespace halvora::sio::detail
