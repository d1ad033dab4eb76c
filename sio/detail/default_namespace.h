#pragma once
// The default namespace "/" of one Engine.IO connection: reassembles Socket.IO packets from the
// engine's messages and tells its listener what they mean. Packets of other namespaces are
// ignored.
// Thread affinity: network thread only (every call, and every call of the listener).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sio/packet.h"

namespace halvora::sio::detail {

class DefaultNamespace {
public:
    class Listener {
    public:
        // The server accepted the namespace; `sid` is empty when it sent none.
        virtual void namespaceConnected(std::string sid) = 0;
        // CONNECT_ERROR with the server's payload.
        virtual void namespaceRefused(Value error) = 0;
        // DISCONNECT from the server while connected.
        virtual void namespaceClosedByServer() = 0;
        virtual void eventReceived(std::string name, Items items,
                                   std::optional<std::uint64_t> ackId) = 0;
        virtual void ackReceived(std::uint64_t id, Items items) = 0;
        // The server sent something that is not a Socket.IO packet.
        virtual void namespaceFailed(const std::string& reason) = 0;

    protected:
        ~Listener() = default;
    };

    explicit DefaultNamespace(Listener& listener) : listener_(listener) {}

    void feedText(std::string_view payload);
    void feedBinary(std::string_view bytes);
    // True from the server's CONNECT until reset().
    bool connected() const { return connected_; }
    // The connection beneath ended: back to waiting for CONNECT, partial packets dropped.
    void reset();

private:
    void onDecoded(packet::Decoder::Result result);
    void onPacket(packet::Packet packet);

    Listener& listener_;
    packet::Decoder decoder_;
    bool connected_ = false;
};

}  // namespace halvora::sio::detail
