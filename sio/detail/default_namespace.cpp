#include "sio/detail/default_namespace.h"

#include <variant>

namespace halvora::sio::detail {
namespace {

Items takeItems(Value& array, std::size_t from) {
    Items items;
    if (!array.is_array()) return items;
    items.reserve(array.size() > from ? array.size() - from : 0);
    for (std::size_t i = from; i < array.size(); ++i) items.push_back(std::move(array[i]));
    return items;
}

}  // namespace

void DefaultNamespace::feedText(std::string_view payload) { onDecoded(decoder_.feedText(payload)); }

void DefaultNamespace::feedBinary(std::string_view bytes) { onDecoded(decoder_.feedBinary(bytes)); }

void DefaultNamespace::reset() {
    decoder_.reset();
    connected_ = false;
}

void DefaultNamespace::onDecoded(packet::Decoder::Result result) {
    if (auto* packet = std::get_if<packet::Packet>(&result)) return onPacket(std::move(*packet));
    if (auto* error = std::get_if<packet::Decoder::Error>(&result)) {
        listener_.namespaceFailed("invalid Socket.IO packet from the server: " + error->message);
    }
}

void DefaultNamespace::onPacket(packet::Packet packet) {
    // Only the default namespace is used; packets for others are not ours.
    if (packet.nsp != "/") return;
    switch (packet.type) {
        case packet::Type::connect: {
            if (connected_) return;
            connected_ = true;
            std::string sid;
            if (packet.data.is_object()) {
                auto found = packet.data.find("sid");
                if (found != packet.data.end() && found->is_string()) sid = found->get<std::string>();
            }
            return listener_.namespaceConnected(std::move(sid));
        }
        case packet::Type::connectError:
            return listener_.namespaceRefused(std::move(packet.data));
        case packet::Type::disconnect:
            if (connected_) listener_.namespaceClosedByServer();
            return;
        case packet::Type::event:
        case packet::Type::binaryEvent: {
            if (!connected_) return;
            auto& data = packet.data;
            if (!data.is_array() || data.empty() || !data.front().is_string()) return;
            std::string name = data.front().get<std::string>();
            Items items = takeItems(data, 1);
            return listener_.eventReceived(std::move(name), std::move(items), packet.id);
        }
        case packet::Type::ack:
        case packet::Type::binaryAck:
            if (!packet.id) return;
            return listener_.ackReceived(*packet.id, takeItems(packet.data, 0));
    }
}

}  // namespace halvora::sio::detail
