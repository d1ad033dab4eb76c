#pragma once
// The Engine.IO connection beneath a SocketManager: what is settable while it runs.

#include <memory>

#include "sio/value.h"

namespace halvora::sio {

namespace detail { class ManagerCore; }

class Engine {
public:
    // Replaces the headers of the next connection attempt (the open connection keeps its own).
    // Callable from any thread.
    void setExtraHeaders(Headers headers);
    Headers extraHeaders() const;
    // True while the websocket is open and the Engine.IO handshake is done.
    bool connected() const;
    // Limits from the server's open packet (zero until the first one arrives).
    std::size_t maxPayload() const;
    Seconds pingInterval() const;
    Seconds pingTimeout() const;

    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

private:
    friend class detail::ManagerCore;
    explicit Engine(std::weak_ptr<detail::ManagerCore> core);
    std::weak_ptr<detail::ManagerCore> core_;
};

}  // namespace halvora::sio
