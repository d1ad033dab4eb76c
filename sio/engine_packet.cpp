// Engine.IO 4 framing over websocket text frames, and the server's open packet.
#include <cstdint>
#include <limits>

#include "sio/packet.h"

namespace halvora::sio::packet {
namespace {

// A whole number in 1...max; none for anything else (missing, fractional, negative, too large).
std::optional<std::uint64_t> positiveInteger(const Value& object, const char* key, std::uint64_t max) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_number_integer()) return std::nullopt;
    std::uint64_t value = 0;
    if (it->is_number_unsigned()) {
        value = it->get<std::uint64_t>();
    } else {
        auto signedValue = it->get<std::int64_t>();
        if (signedValue <= 0) return std::nullopt;
        value = static_cast<std::uint64_t>(signedValue);
    }
    if (value == 0 || value > max) return std::nullopt;
    return value;
}

}  // namespace

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
    auto interval = positiveInteger(open, "pingInterval", kMaxMs);
    auto timeout = positiveInteger(open, "pingTimeout", kMaxMs);
    if (!interval || !timeout) return std::nullopt;
    handshake.pingIntervalMs = static_cast<std::uint32_t>(*interval);
    handshake.pingTimeoutMs = static_cast<std::uint32_t>(*timeout);

    if (open.contains("maxPayload")) {
        auto maxPayload = positiveInteger(open, "maxPayload", std::numeric_limits<std::uint64_t>::max());
        if (!maxPayload) return std::nullopt;
        handshake.maxPayload = *maxPayload;
    }
    return handshake;
}

}  // namespace halvora::sio::packet
