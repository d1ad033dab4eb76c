// Small pieces of the public socket interface that need no connection.
#include <utility>

#include "sio/socket.h"

namespace halvora::sio {

const char* toString(Status status) {
    switch (status) {
        case Status::notConnected: return "notConnected";
        case Status::disconnected: return "disconnected";
        case Status::connecting: return "connecting";
        case Status::connected: return "connected";
    }
    return "unknown";
}

void Ack::operator()(Items items) const {
    if (!send_) return;
    // Cleared before the call, so that a re-entrant call from inside send does nothing.
    auto send = std::move(send_);
    send_ = nullptr;
    send(std::move(items));
}

}  // namespace halvora::sio
