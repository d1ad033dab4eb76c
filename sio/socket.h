#pragma once
// One Socket.IO namespace connection (the default namespace "/"), obtained from
// SocketManager::defaultSocket(). Register handlers, emit events.

#include <functional>
#include <memory>
#include <string>

#include "sio/value.h"

namespace halvora::sio {

class SocketManager;
namespace detail { class ManagerCore; }

// Answers a server's event that asked for an acknowledgement. Calling an Ack that was not
// requested, or a second time, does nothing.
class Ack {
public:
    Ack() = default;
    explicit Ack(std::function<void(Items)> send) : send_(std::move(send)) {}
    bool expected() const { return static_cast<bool>(send_); }
    void operator()(Items items = {}) const;

private:
    mutable std::function<void(Items)> send_;
};

enum class Status { notConnected, disconnected, connecting, connected };
const char* toString(Status status);

class Socket {
public:
    // Arguments of the event and, when the server asked for one, the acknowledgement to send.
    using Handler = std::function<void(const Items& items, Ack ack)>;
    // The server's acknowledgement items, or ["NO ACK"] when the timeout passed first.
    using AckCallback = std::function<void(const Items& items)>;

    // Registers a handler for a server event or a client event: "connect", "disconnect",
    // "error", "reconnect", "reconnectAttempt", "statusChange". Handlers run on the manager's
    // handleQueue, in registration order. Returns an id for off().
    std::uint64_t on(const std::string& event, Handler handler);
    // Handlers for every server event; the event name is the first item.
    std::uint64_t onAny(Handler handler);
    void off(std::uint64_t id);
    void off(const std::string& event);

    // Sends an event. Callable from any thread. When not connected the event is dropped and an
    // "error" event reports it; an event too large for the server's maxPayload or with more
    // attachments than allowed is also dropped with an "error".
    void emit(const std::string& event, Items items);
    // Sends an event asking for an acknowledgement; `onAck` runs once, on the handleQueue.
    // A timeout of zero waits without limit.
    void emitWithAck(const std::string& event, Items items, Seconds timeout, AckCallback onAck);

    Status status() const;
    // The namespace's session id while connected, else empty.
    std::string id() const;

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

private:
    friend class detail::ManagerCore;
    explicit Socket(std::weak_ptr<detail::ManagerCore> core);
    std::weak_ptr<detail::ManagerCore> core_;
};

}  // namespace halvora::sio
