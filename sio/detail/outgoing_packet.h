#pragma once
// Outgoing Socket.IO packets: building events and acknowledgements, and encoding them within the
// server's limits.
// Thread affinity: none (pure functions).

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "sio/detail/websocket_transport.h"
#include "sio/packet.h"

namespace halvora::sio::detail {

// Attachments one outgoing event may carry.
inline constexpr std::size_t kMaxOutgoingAttachments = 10;

packet::Packet eventPacket(const std::string& event, Items items, std::optional<std::uint64_t> ackId);
packet::Packet ackPacket(std::uint64_t id, Items items);

// The packet as one Engine.IO message, or why it may not be sent (`what` names it in the
// reason): more attachments than allowed, or a frame larger than the server's `maxPayload`.
std::variant<OutgoingMessage, std::string> encodeOutgoing(const packet::Packet& packet,
                                                          std::size_t maxPayload,
                                                          const std::string& what);

}  // namespace halvora::sio::detail
