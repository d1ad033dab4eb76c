// Engine.IO 4 framing over websocket text frames, and the server's open packet.
#include <cstdint>
#include <limits>

#include "base/json_fields.h"
#include "sio/packet.h"

namespace halvora::sio::packet {
std::optional<EnginePacket> decodeEngine(std::string_view frame) {
    if (frame.empty() || frame[0] < '0' || frame[0] > '6') return std::nullopt;
    return EnginePacket{static_cast<EngineType>(frame[0]), std::string(frame.substr(1))};
}

std::string encodeEngine(EngineType type, std::string_view data) {
    std::string frame;
    frame.reserve(1 + data.size());
    frame += static_cast<char>(type);
    frame += data;
    return frame;
}

std::optional<Handshake> decodeHandshake(std::string_view json) {
    Value open = Value::parse(json, nullptr, false);
    if (!open.is_object()) return std::nullopt;

    Handshake handshake;
    auto sid = open.find("sid");
    if (sid == open.end() || !sid->is_string() || sid->get_ref<const std::string&>().empty()) return std::nullopt;
    handshake.sid = sid->get<std::string>();

    // Only websocket is used, so the list is informative; it must still be well formed.
    if (auto upgrades = open.find("upgrades"); upgrades != open.end()) {
        if (!upgrades->is_array()) return std::nullopt;
        for (const auto& upgrade : *upgrades) {
            if (!upgrade.is_string()) return std::nullopt;
            handshake.upgrades.push_back(upgrade.get<std::string>());
        }
    }

    constexpr auto kMaxMs = std::numeric_limits<std::uint32_t>::max();
    auto interval = positiveIntegerField(open, "pingInterval", kMaxMs);
    auto timeout = positiveIntegerField(open, "pingTimeout", kMaxMs);
    if (!interval || !timeout) return std::nullopt;
    handshake.pingIntervalMs = static_cast<std::uint32_t>(*interval);
    handshake.pingTimeoutMs = static_cast<std::uint32_t>(*timeout);

    if (open.contains("maxPayload")) {
        auto maxPayload = positiveIntegerField(open, "maxPayload", std::numeric_limits<std::uint64_t>::max());
        if (!maxPayload) return std::nullopt;
        handshake.maxPayload = *maxPayload;
    }
    return handshake;
}

}  // namespace halvora::sio::packet
