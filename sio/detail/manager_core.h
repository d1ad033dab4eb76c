#pragma once
// The state behind a SocketManager, its Socket and its Engine, and the glue between its parts:
// the public calls, the status and epochs, handing events to the executor, and the session
// (EngineSession below DefaultNamespace, with AckTable and ReconnectPolicy) on the network thread.
// Thread affinity: public calls from any thread (under `mutex_`), protocol on the network thread.
//
// The public calls touch only the members under `mutex_`; the network thread owns the members
// marked so. Operations queued on the network thread hold a shared_ptr to the core, so it lives
// until they ran.
//
// Epochs: connect() to disconnect() is one epoch. disconnect() and the destructor start a new one
// and close the old epoch's HandlerGate, so events of the old epoch still queued on an executor
// are dropped. The "statusChange" and "disconnect" events caused by disconnect() itself belong to
// the new epoch and are delivered; after the destructor nothing is.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "sio/config.h"
#include "sio/detail/ack_table.h"
#include "sio/detail/default_namespace.h"
#include "sio/detail/engine_session.h"
#include "sio/detail/handler_gate.h"
#include "sio/detail/handler_registry.h"
#include "sio/detail/reconnect_policy.h"
#include "sio/detail/url.h"
#include "sio/detail/websocket_transport.h"
#include "sio/engine.h"
#include "sio/packet.h"
#include "sio/socket.h"

namespace halvora::sio::detail {

class ManagerCore final : public std::enable_shared_from_this<ManagerCore>,
                          private EngineSession::Listener,
                          private DefaultNamespace::Listener {
public:
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
    struct PendingEvent {
        std::string name;
        Items items;
        Ack ack;
        bool fromServer;
    };

    // ---- any thread ----
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
    // The connection failed or died: events, then reconnection.
    void lose(const std::string& reason);
    void dropTransport(bool graceful);
    void sendOnNetwork(std::uint64_t epoch, std::uint64_t connection, OutgoingMessage message,
                       const std::string& what);
    void registerAck(std::uint64_t epoch, std::uint64_t id,
                     std::shared_ptr<const Socket::AckCallback> callback, Seconds timeout);

    // EngineSession::Listener
    void engineOpened(const packet::Handshake& handshake) override;
    void engineText(std::string_view payload) override;
    void engineBinary(std::string_view bytes) override;
    void engineLost(const std::string& reason) override;
    // DefaultNamespace::Listener
    void namespaceConnected(std::string sid) override;
    void namespaceRefused(Value error) override;
    void namespaceClosedByServer() override;
    void eventReceived(std::string name, Items items, std::optional<std::uint64_t> ackId) override;
    void ackReceived(std::uint64_t id, Items items) override;
    void namespaceFailed(const std::string& reason) override;

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
    HandlerRegistry handlers_;

    std::atomic<std::uint64_t> nextAckId_{0};

    // Network thread only.
    std::uint64_t sessionEpoch_ = 0;
    EngineSession engine_;
    DefaultNamespace namespace_;
    AckTable acks_;
    ReconnectPolicy reconnect_;
};

}  // namespace halvora::sio::detail
