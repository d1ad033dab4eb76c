#include "sio/detail/engine_session.h"

#include "sio/detail/timer_duration.h"

namespace halvora::sio::detail {

using Clock = std::chrono::steady_clock;

EngineSession::EngineSession(boost::asio::io_context& context, Listener& listener)
    : context_(context), listener_(listener), connectTimer_(context), heartbeatTimer_(context) {}

void EngineSession::open(TransportOptions options, std::weak_ptr<void> owner) {
    owner_ = std::move(owner);
    const auto connection = ++connection_;
    state_ = State::opening;
    const Seconds timeout = options.timeout;
    // The owner's lifetime guards `this` in every callback below.
    WebsocketTransport::Listener callbacks;
    callbacks.text = [owner = owner_, this, connection](std::string_view frame) {
        if (auto alive = owner.lock()) onText(connection, frame);
    };
    callbacks.binary = [owner = owner_, this, connection](std::string_view bytes) {
        if (auto alive = owner.lock()) onBinary(connection, bytes);
    };
    callbacks.closed = [owner = owner_, this, connection](std::string reason) {
        auto alive = owner.lock();
        if (!alive || connection != connection_) return;
        transport_.reset();
        listener_.engineLost(reason);
    };
    transport_ = WebsocketTransport::create(context_, std::move(options), std::move(callbacks));
    transport_->open();

    connectTimer_.expires_after(timerDuration(timeout));
    connectTimer_.async_wait([owner = owner_.lock(), this, connection](boost::system::error_code ec) {
        if (ec || connection != connection_ || state_ != State::opening) return;
        listener_.engineLost("connect timeout");
    });
}

void EngineSession::drop(bool graceful) {
    if (transport_) {
        if (graceful) {
            transport_->close();
        } else {
            transport_->abort();
        }
        transport_.reset();
    }
    ++connection_;
    state_ = State::idle;
    connectTimer_.cancel();
    heartbeatTimer_.cancel();
}

void EngineSession::send(OutgoingMessage message) { transport_->send(std::move(message)); }

void EngineSession::onText(std::uint64_t connection, std::string_view frame) {
    if (connection != connection_) return;
    lastReceived_ = Clock::now();
    auto engine = packet::decodeEngine(frame);
    if (!engine) return listener_.engineLost("invalid Engine.IO packet from the server");
    switch (engine->type) {
        case packet::EngineType::open:
            return onOpenPacket(engine->data);
        case packet::EngineType::ping:
            // Answered here, before any handler: a busy executor must not look like a dead client.
            if (state_ != State::opening) transport_->send(OutgoingMessage{"3", {}, {}, true});
            return;
        case packet::EngineType::message:
            if (state_ == State::opening) {
                return listener_.engineLost("message before the Engine.IO handshake");
            }
            return listener_.engineText(engine->data);
        case packet::EngineType::close:
            return listener_.engineLost("transport close");
        default:
            return;
    }
}

void EngineSession::onBinary(std::uint64_t connection, std::string_view bytes) {
    if (connection != connection_) return;
    lastReceived_ = Clock::now();
    if (state_ == State::opening) return listener_.engineLost("message before the Engine.IO handshake");
    listener_.engineBinary(bytes);
}

void EngineSession::onOpenPacket(std::string_view json) {
    if (state_ != State::opening) return listener_.engineLost("unexpected Engine.IO open packet");
    auto handshake = packet::decodeHandshake(json);
    if (!handshake) return listener_.engineLost("invalid Engine.IO handshake");
    connectTimer_.cancel();
    state_ = State::open;
    heartbeatWindow_ = std::chrono::milliseconds(std::uint64_t{handshake->pingIntervalMs} +
                                                 handshake->pingTimeoutMs);
    armHeartbeat();
    listener_.engineOpened(*handshake);
}

void EngineSession::armHeartbeat() {
    // One timer per heartbeat window rather than one per frame: it re-arms from the last frame.
    heartbeatTimer_.expires_at(lastReceived_ + heartbeatWindow_);
    heartbeatTimer_.async_wait(
        [owner = owner_.lock(), this, connection = connection_](boost::system::error_code ec) {
            if (ec || connection != connection_ || state_ == State::idle) return;
            if (Clock::now() >= lastReceived_ + heartbeatWindow_) {
                return listener_.engineLost("ping timeout");
            }
            armHeartbeat();
        });
}

}  // namespace halvora::sio::detail
