#pragma once
// The state behind a SocketManager, its Socket and its Engine: the Engine.IO / Socket.IO session,
// reconnection, handlers and acknowledgements.
//
// Threads: the public calls come from any thread and touch only the members under `mutex_`; the
// protocol runs on the network thread and owns the members marked so. Operations queued on the
// network thread hold a shared_ptr to the core, so it lives until they ran.
//
// Epochs: connect() to disconnect() is one epoch. disconnect() and the destructor start a new one
// and close the old epoch's HandlerGate, so events of the old epoch still queued on an executor
// are dropped. The "statusChange" and "disconnect" events caused by disconnect() itself belong to
// the new epoch and are delivered; after the destructor nothing is.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/steady_timer.hpp>

#include "sio/config.h"
#include "sio/detail/backoff.h"
#include "sio/detail/handler_gate.h"
#include "sio/detail/url.h"
#include "sio/detail/websocket_transport.h"
#include "sio/engine.h"
#include "sio/packet.h"
#include "sio/socket.h"

namespace halvora::sio::detail {

class ManagerCore : public std::enable_shared_from_this<ManagerCore> {
public:
    // Attachments one outgoing event may carry.
    static constexpr std::size_t kMaxOutgoingAttachments = 10;

    ManagerCore(std::string url, Config config);
    ~ManagerCore();

    std::unique_ptr<Socket> makeSocket();
    std::unique_ptr<Engine> makeEngine();

    const std::string& url() const { return url_; }
    const Config& config() const { return config_; }

    void connect();
    void disconnect();
    // The owner goes away: like disconnect() without events, and waits for handlers running on
    // other threads.
    void shutdown();

    Status status() const;
    std::string sid() const;

    std::uint64_t on(std::string event, Socket::Handler handler);
    std::uint64_t onAny(Socket::Handler handler);
    void off(std::uint64_t id);
    void off(const std::string& event);

    void emit(const std::string& event, Items items, Seconds timeout,
              std::shared_ptr<const Socket::AckCallback> onAck);

    void setExtraHeaders(Headers headers);
    Headers extraHeaders() const;
    bool engineOpen() const;
    std::size_t maxPayload() const;
    Seconds pingInterval() const;
    Seconds pingTimeout() const;

private:
    enum class Phase { idle, opening, handshaking, connected };

    struct Registration {
        std::uint64_t id;
        std::string event;
        bool any;
        std::shared_ptr<const Socket::Handler> handler;
    };
    struct PendingEvent {
        std::string name;
        Items items;
        Ack ack;
        bool fromServer;
    };
    struct PendingAck {
        std::uint64_t epoch;
        std::shared_ptr<const Socket::AckCallback> callback;
        std::unique_ptr<boost::asio::steady_timer> timer;
    };

    // ---- any thread ----
    void removeRegistrations(const std::function<bool(const Registration&)>& match);
    bool current(std::uint64_t epoch) const;
    void setStatus(std::uint64_t epoch, Status status);
    // Queues the handlers of `name` (and onAny handlers for server events) on the executor.
    void deliver(std::uint64_t epoch, std::string name, Items items, Ack ack = {},
                 bool fromServer = false);
    void deliverAck(std::uint64_t epoch, std::shared_ptr<const Socket::AckCallback> callback,
                    Items items);
    void schedule(std::shared_ptr<HandlerGate> gate, std::function<void()> task);
    void runHandlers(const PendingEvent& event);
    // Encodes a packet to send, or reports why it is dropped (returns none then).
    std::optional<OutgoingMessage> prepare(const packet::Packet& packet, const std::string& what,
                                           std::uint64_t& epoch);
    Ack makeAck(std::uint64_t connection, std::uint64_t id);
    void sendAck(std::uint64_t connection, std::uint64_t id, Items items);

    // ---- network thread ----
    void startSession(std::uint64_t epoch);
    void stopSession();
    void attemptConnect();
    void scheduleReconnect();
    void onText(std::uint64_t connection, std::string_view frame);
    void onBinary(std::uint64_t connection, std::string_view bytes);
    void onOpenPacket(std::string_view json);
    void onDecoded(packet::Decoder::Result result);
    void onPacket(packet::Packet packet);
    void onNamespaceConnected(const Value& data);
    void onIncomingEvent(packet::Packet packet);
    void onIncomingAck(packet::Packet packet);
    // The connection failed or died: events, then reconnection.
    void lose(const std::string& reason);
    void dropTransport(bool graceful);
    void armHeartbeat();
    void sendOnNetwork(std::uint64_t epoch, std::uint64_t connection, OutgoingMessage message,
                       const std::string& what);
    void registerAck(std::uint64_t epoch, std::uint64_t id,
                     std::shared_ptr<const Socket::AckCallback> callback, Seconds timeout);

    const std::string url_;
    const Config config_;
    const Executor executor_;
    std::optional<ServerAddress> address_;
    std::optional<std::string> target_;
    std::string setupError_;

    mutable std::mutex mutex_;
    std::uint64_t epoch_ = 0;
    std::shared_ptr<HandlerGate> gate_;
    Status status_ = Status::notConnected;
    std::string sid_;
    Headers extraHeaders_;
    bool engineOpen_ = false;
    std::size_t maxPayload_ = 0;
    Seconds pingInterval_{0};
    Seconds pingTimeout_{0};
    std::vector<Registration> registrations_;
    std::uint64_t nextRegistrationId_ = 1;

    std::atomic<std::uint64_t> nextAckId_{0};

    // Network thread only.
    std::uint64_t sessionEpoch_ = 0;
    Phase phase_ = Phase::idle;
    std::shared_ptr<WebsocketTransport> transport_;
    std::uint64_t connection_ = 0;
    packet::Decoder decoder_;
    boost::asio::steady_timer connectTimer_;
    boost::asio::steady_timer heartbeatTimer_;
    boost::asio::steady_timer reconnectTimer_;
    std::chrono::steady_clock::time_point lastReceived_;
    std::chrono::steady_clock::duration heartbeatWindow_{};
    int attempts_ = 0;
    Backoff backoff_;
    std::map<std::uint64_t, PendingAck> pendingAcks_;
};

}  // namespace halvora::sio::detail
