#pragma once
// A Socket.IO connection, as the session and notification channels use it. The default
// implementation is the project's own client (sio/); tests install a scripted one.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "halvora/platform/http_client.h"

namespace halvora::platform {

struct RealtimeSocketConfig {
    std::string path;                     // endpoint path on the server
    HeaderList extraHeaders;              // sent with each connection attempt
    std::optional<double> reconnectWait;  // seconds; the client's default when none
};

// One manager with its default namespace socket.
class RealtimeSocket {
public:
    // The event's argument list. Binary values travel as binary attachments.
    using Items = std::vector<nlohmann::ordered_json>;
    using Handler = std::function<void(const Items& items)>;

    virtual ~RealtimeSocket() = default;

    // Server events and the client's own ("connect", "disconnect", "error", "reconnect",
    // "reconnectAttempt", "statusChange"). Handlers run on the main queue, in registration order.
    virtual void on(const std::string& event, Handler handler) = 0;
    // Callable from any thread; dropped (with an "error") while not connected. Not called emit():
    // Qt defines that word as a macro, and Qt applications include this header.
    virtual void emitEvent(const std::string& event, Items items) = 0;
    virtual void connect() = 0;
    // Stops the connection and any reconnection; no handler runs afterwards.
    virtual void disconnect() = 0;
    // Headers presented at the next connection attempt. Callable from any thread.
    virtual void setExtraHeaders(HeaderList headers) = 0;
    // True while connected. Callable from any thread.
    virtual bool isConnected() const = 0;
};

class RealtimeSocketFactory {
public:
    virtual ~RealtimeSocketFactory() = default;
    virtual std::shared_ptr<RealtimeSocket> make(const std::string& url, RealtimeSocketConfig config) = 0;
};

}  // namespace halvora::platform
