#include "sio/detail/outgoing_packet.h"

#include <algorithm>

namespace halvora::sio::detail {

packet::Packet eventPacket(const std::string& event, Items items, std::optional<std::uint64_t> ackId) {
    packet::Packet packet;
    packet.type = packet::Type::event;
    packet.data = Value::array();
    packet.data.push_back(event);
    for (auto& item : items) packet.data.push_back(std::move(item));
    packet.id = ackId;
    return packet;
}

packet::Packet ackPacket(std::uint64_t id, Items items) {
    packet::Packet packet;
    packet.type = packet::Type::ack;
    packet.id = id;
    packet.data = Value::array();
    for (auto& item : items) packet.data.push_back(std::move(item));
    return packet;
}

std::variant<OutgoingMessage, std::string> encodeOutgoing(const packet::Packet& packet,
                                                          std::size_t maxPayload,
                                                          const std::string& what) {
    auto encoded = packet::encode(packet);
    const bool tooLarge =
        encoded.text.size() + 1 > maxPayload ||
        std::any_of(encoded.attachments.begin(), encoded.attachments.end(),
                    [&](const Binary& b) { return b.size() > maxPayload; });
    if (encoded.attachments.size() > kMaxOutgoingAttachments) {
        return what + " dropped: more than " + std::to_string(kMaxOutgoingAttachments) +
               " binary attachments";
    }
    if (tooLarge) {
        return what + " dropped: larger than the server's limit of " + std::to_string(maxPayload) +
               " bytes per message";
    }
    return OutgoingMessage{"4", std::move(encoded.text), std::move(encoded.attachments)};
}

}  // namespace halvora::sio::detail
