#pragma once
// Wire formats: Engine.IO 4 packets and Socket.IO 5 packets, encoding and decoding.
// Pure functions, no I/O; the decoder takes arbitrary bytes from the network.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "sio/value.h"

namespace halvora::sio::packet {

// ---- Engine.IO ----
enum class EngineType : char {
    open = '0', close = '1', ping = '2', pong = '3', message = '4', upgrade = '5', noop = '6'
};

// A text websocket frame: type character + payload. (Binary frames carry raw bytes and need no
// Engine.IO framing in protocol 4 over websocket.)
struct EnginePacket {
    EngineType type;
    std::string data;
};
std::optional<EnginePacket> decodeEngine(std::string_view frame);
std::string encodeEngine(EngineType type, std::string_view data = {});

// The server's open packet.
struct Handshake {
    std::string sid;
    std::vector<std::string> upgrades;
    std::uint32_t pingIntervalMs = 25000;
    std::uint32_t pingTimeoutMs = 20000;
    std::uint64_t maxPayload = 1000000;
};
std::optional<Handshake> decodeHandshake(std::string_view json);

// ---- Socket.IO ----
enum class Type : int {
    connect = 0, disconnect = 1, event = 2, ack = 3, connectError = 4, binaryEvent = 5, binaryAck = 6
};

struct Packet {
    Type type = Type::event;
    std::string nsp = "/";
    std::optional<std::uint64_t> id;
    // connect: auth object or null; event/ack: array of items (event name first for events);
    // connectError: the error payload; disconnect: null.
    Value data;
};

// Encoded packet: the text of the Engine.IO message (without the leading '4') and the binary
// attachments that follow it, in order. Binary values in data become placeholders
// {"_placeholder":true,"num":N} and the type becomes binaryEvent/binaryAck.
struct Encoded {
    std::string text;
    std::vector<Binary> attachments;
};
Encoded encode(const Packet& packet);
// Moves the binary values out of the packet instead of copying them.
Encoded encode(Packet&& packet);

// Reassembles packets from a stream of Engine.IO message payloads. Reset on reconnection.
class Decoder {
public:
    struct Error { std::string message; };
    // A packet is complete; or more binary frames are needed; or the input is invalid.
    struct NeedMore {};
    using Result = std::variant<Packet, NeedMore, Error>;

    // Text message (the Engine.IO payload after '4'). An error when attachments were pending.
    Result feedText(std::string_view text);
    // Binary frame: the next attachment of the pending packet; an error when none is pending.
    Result feedBinary(std::string_view bytes);
    void reset();
    bool awaitingAttachments() const { return pending_.has_value(); }

    // Bounds on what the decoder accepts from a peer.
    static constexpr std::size_t kMaxAttachments = 1000;

private:
    std::optional<Packet> pending_;
    std::size_t expected_ = 0;
    std::vector<Binary> received_;
};

// Event items from an event packet's data (name removed); none when data is not an array
// starting with a string.
std::optional<std::pair<std::string, Items>> splitEvent(const Value& data);

}  // namespace halvora::sio::packet
