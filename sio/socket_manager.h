#pragma once
// A Socket.IO client (Socket.IO protocol 5 over Engine.IO protocol 4, websocket transport).
//
//   namespace sio = halvora::sio;
//   sio::Config config;
//   config.path = "/sockets/1/events";
//   config.extraHeaders = {{"Authorization", "Bearer " + token}};
//   sio::SocketManager manager("wss://example.com", config);
//   auto& socket = manager.defaultSocket();
//   socket.on("connect", [&](const sio::Items&, sio::Ack) { socket.emit("hello", {"world"}); });
//   socket.on("news", [](const sio::Items& items, sio::Ack ack) { ack({"thanks"}); });
//   manager.connect();
//
// All network work runs on one process-wide network thread; handlers run on the configured
// executor. Destroying the manager disconnects it; no handler runs after the destructor returns
// (a handler already running on another thread finishes first).

#include <memory>
#include <string>

#include "sio/config.h"
#include "sio/engine.h"
#include "sio/socket.h"

namespace halvora::sio {

class SocketManager {
public:
    // `url`: ws://, wss://, http:// or https:// with host and optional port. An invalid URL
    // makes connect() report an "error" instead of connecting.
    SocketManager(std::string url, Config config);
    ~SocketManager();

    // The default namespace "/"; created with the manager.
    Socket& defaultSocket();
    Engine& engine();
    const Engine& engine() const;

    // Opens the transport and connects the default namespace. Does nothing when already
    // connected or connecting.
    void connect();
    // Disconnects (sending DISCONNECT when connected) and stops reconnecting. Events still
    // queued on the executor are dropped; the "statusChange" and "disconnect" events that
    // disconnect() itself causes are delivered.
    void disconnect();

    Status status() const;
    const std::string& url() const;
    const Config& config() const;

    SocketManager(const SocketManager&) = delete;
    SocketManager& operator=(const SocketManager&) = delete;

private:
    std::shared_ptr<detail::ManagerCore> core_;
    std::unique_ptr<Socket> socket_;
    std::unique_ptr<Engine> engine_;
};

}  // namespace halvora::sio
