#pragma once
// One websocket connection (ws:// or wss://) on the network thread: resolve, connect, TLS, upgrade,
// then a read loop and a write queue. Beast and OpenSSL stay inside the implementation.
// Every member function must be called on the network thread; the listener is called there too.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "sio/detail/url.h"
#include "base/http_header.h"
#include "sio/value.h"

namespace halvora::sio::detail {

struct TransportOptions {
    ServerAddress address;
    std::string target;
    // Sent on the upgrade request, in order.
    Headers headers;
    bool verifyPeer = true;
    std::string caFile;
    // Bound on connecting, the TLS and websocket handshakes, and the closing handshake.
    Seconds timeout{20};
    // Largest websocket message accepted from the peer.
    std::size_t maxIncomingMessage = 64 * 1024 * 1024;
};

// One Engine.IO message: a text frame `head` + `text`, then each attachment as a binary frame,
// sent back to back.
struct OutgoingMessage {
    std::string head;
    std::string text;
    std::vector<Binary> attachments;
    // Goes ahead of queued messages not yet started (heartbeat answers: a long queue of events
    // must not make the server think the client is dead).
    bool urgent = false;
};

class WebsocketTransport {
public:
    struct Listener {
        std::function<void()> opened;
        // Message payloads; the views are valid during the call only.
        std::function<void(std::string_view)> text;
        std::function<void(std::string_view)> binary;
        // Once, when the connection failed or ended without close()/abort() from the owner.
        std::function<void(std::string reason)> closed;
    };

    static std::shared_ptr<WebsocketTransport> create(boost::asio::io_context& context,
                                                      TransportOptions options, Listener listener);
    virtual ~WebsocketTransport() = default;

    virtual void open() = 0;
    // Queued until the connection is open.
    virtual void send(OutgoingMessage message) = 0;
    // Sends what is queued, then closes the websocket; the listener is not called any more.
    virtual void close() = 0;
    // Drops the connection at once; the listener is not called any more.
    virtual void abort() = 0;
};


}  // namespace halvora::sio::detail
