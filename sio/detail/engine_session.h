#pragma once
// One Engine.IO connection at a time: opens the websocket, waits for the server's open packet
// (bounded by the connect timeout), answers pings, declares the peer dead when it stays silent
// longer than pingInterval + pingTimeout, and hands the message payloads to its listener.
// Thread affinity: network thread only (every call, and every call of the listener).

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "sio/detail/websocket_transport.h"
#include "sio/packet.h"

namespace halvora::sio::detail {

class EngineSession {
public:
    class Listener {
    public:
        // The server's open packet arrived; messages may follow.
        virtual void engineOpened(const packet::Handshake& handshake) = 0;
        // Payload of a message packet (after the '4'), or a binary frame.
        virtual void engineText(std::string_view payload) = 0;
        virtual void engineBinary(std::string_view bytes) = 0;
        // The connection failed or died; the listener is expected to drop() it.
        virtual void engineLost(const std::string& reason) = 0;

    protected:
        ~Listener() = default;
    };

    enum class State { idle, opening, open };

    EngineSession(boost::asio::io_context& context, Listener& listener);

    // Starts a new connection (the previous one must have been dropped). `owner` holds this
    // session: pending timers keep it alive, the transport's callbacks do nothing once it is gone.
    void open(TransportOptions options, std::weak_ptr<void> owner);
    // Ends the connection, closing the websocket cleanly or at once; stale callbacks are ignored.
    void drop(bool graceful);
    // Only while hasTransport().
    void send(OutgoingMessage message);

    State state() const { return state_; }
    bool hasTransport() const { return static_cast<bool>(transport_); }
    // Changes with every open() and drop(): tells a connection's late callbacks from current ones.
    std::uint64_t connection() const { return connection_; }

private:
    void onText(std::uint64_t connection, std::string_view frame);
    void onBinary(std::uint64_t connection, std::string_view bytes);
    void onOpenPacket(std::string_view json);
    void armHeartbeat();

    boost::asio::io_context& context_;
    Listener& listener_;
    std::weak_ptr<void> owner_;
    State state_ = State::idle;
    std::shared_ptr<WebsocketTransport> transport_;
    std::uint64_t connection_ = 0;
    boost::asio::steady_timer connectTimer_;
    boost::asio::steady_timer heartbeatTimer_;
    std::chrono::steady_clock::time_point lastReceived_;
    std::chrono::steady_clock::duration heartbeatWindow_{};
};

}  // namespace halvora::sio::detail
