// Socket.IO 5 packet decoding. Everything here comes from the network: every field is checked
// and nothing is sized from the peer's numbers beyond the decoder's bounds.
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "sio/packet.h"

namespace halvora::sio::packet {
namespace {

using Error = Decoder::Error;

// Deeper JSON is refused before parsing: serialising, comparing and walking values recurse.
constexpr std::size_t kMaxDepth = 128;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// An upper bound of the nesting depth (brackets outside strings); exact for valid JSON.
bool tooDeep(std::string_view json) {
    std::size_t depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        char c = json[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxDepth) return true;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

// The decimal number at text[pos...], advancing pos; none without digits or beyond uint64.
std::optional<std::uint64_t> readNumber(std::string_view text, std::size_t& pos) {
    if (pos >= text.size() || !isDigit(text[pos])) return std::nullopt;
    std::uint64_t value = 0;
    constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
    for (; pos < text.size() && isDigit(text[pos]); ++pos) {
        auto digit = static_cast<std::uint64_t>(text[pos] - '0');
        if (value > (kMax - digit) / 10) return std::nullopt;
        value = value * 10 + digit;
    }
    return value;
}

struct Placeholder {
    Value* node;
    std::size_t num;
};

// Finds the placeholders of a binary packet's data in depth-first order. An object whose
// "_placeholder" is true is one; its "num" must name one of `count` attachments.
std::optional<Error> findPlaceholders(Value& node, std::size_t count, std::vector<Placeholder>& found) {
    if (node.is_object()) {
        auto flag = node.find("_placeholder");
        if (flag != node.end() && flag->is_boolean() && flag->get<bool>()) {
            auto num = node.find("num");
            if (num == node.end() || !num->is_number_unsigned() || num->get<std::uint64_t>() >= count) {
                return Error{"attachment placeholder with an invalid num"};
            }
            found.push_back({&node, static_cast<std::size_t>(num->get<std::uint64_t>())});
            return std::nullopt;
        }
    }
    if (node.is_structured()) {
        for (auto& child : node) {
            if (auto error = findPlaceholders(child, count, found)) return error;
        }
    }
    return std::nullopt;
}

std::optional<Error> checkData(Type type, const Value& data, bool present) {
    switch (type) {
        case Type::connect:
            if (present && !data.is_object()) return Error{"CONNECT data must be an object"};
            break;
        case Type::disconnect:
            if (present) return Error{"DISCONNECT carries no data"};
            break;
        case Type::event:
        case Type::binaryEvent:
            if (!data.is_array() || data.empty() || !data.front().is_string()) {
                return Error{"EVENT data must be an array starting with the event name"};
            }
            break;
        case Type::ack:
        case Type::binaryAck:
            if (!data.is_array()) return Error{"ACK data must be an array"};
            break;
        case Type::connectError:
            if (!data.is_object() && !data.is_string()) return Error{"CONNECT_ERROR data must be an object or a string"};
            break;
    }
    return std::nullopt;
}

struct Parsed {
    Packet packet;
    std::size_t attachments = 0;
};

std::variant<Parsed, Error> parse(std::string_view text) {
    if (text.empty()) return Error{"empty packet"};
    if (text[0] < '0' || text[0] > '6') return Error{"unknown packet type"};
    Parsed parsed;
    Packet& packet = parsed.packet;
    packet.type = static_cast<Type>(text[0] - '0');
    std::size_t pos = 1;

    if (packet.type == Type::binaryEvent || packet.type == Type::binaryAck) {
        auto count = readNumber(text, pos);
        if (!count || pos >= text.size() || text[pos] != '-') return Error{"binary packet without an attachment count"};
        if (*count > Decoder::kMaxAttachments) return Error{"too many attachments"};
        parsed.attachments = static_cast<std::size_t>(*count);
        ++pos;
    }

    // The namespace runs to the comma, or to the end when nothing follows it.
    if (pos < text.size() && text[pos] == '/') {
        auto comma = text.find(',', pos);
        auto end = comma == std::string_view::npos ? text.size() : comma;
        packet.nsp = std::string(text.substr(pos, end - pos));
        pos = comma == std::string_view::npos ? text.size() : comma + 1;
    }

    if (pos < text.size() && isDigit(text[pos])) {
        packet.id = readNumber(text, pos);
        if (!packet.id) return Error{"acknowledgement id out of range"};
    }

    std::string_view json = text.substr(pos);
    bool present = !json.empty();
    if (present) {
        if (tooDeep(json)) return Error{"payload nested too deeply"};
        packet.data = Value::parse(json, nullptr, false);
        if (packet.data.is_discarded()) return Error{"payload is not valid JSON"};
    }
    if (auto error = checkData(packet.type, packet.data, present)) return *error;
    return parsed;
}

}  // namespace

Decoder::Result Decoder::feedText(std::string_view text) {
    if (pending_) {
        reset();
        return Error{"text packet while binary attachments were pending"};
    }
    auto parsed = parse(text);
    if (auto* error = std::get_if<Error>(&parsed)) return std::move(*error);
    auto& [packet, attachments] = std::get<Parsed>(parsed);

    bool binary = packet.type == Type::binaryEvent || packet.type == Type::binaryAck;
    if (binary) {
        // Placeholders are checked now, so that a bad packet is refused before its attachments.
        std::vector<Placeholder> placeholders;
        if (auto error = findPlaceholders(packet.data, attachments, placeholders)) return std::move(*error);
    }
    if (attachments == 0) return std::move(packet);

    pending_ = std::move(packet);
    expected_ = attachments;
    received_.clear();
    received_.reserve(expected_);  // bounded by kMaxAttachments
    return NeedMore{};
}

Decoder::Result Decoder::feedBinary(std::string_view bytes) {
    if (!pending_) return Error{"binary frame without a pending binary packet"};
    received_.emplace_back(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
    if (received_.size() < expected_) return NeedMore{};

    std::vector<Placeholder> placeholders;
    if (auto error = findPlaceholders(pending_->data, expected_, placeholders)) {
        reset();
        return std::move(*error);
    }
    // An attachment named by several placeholders is copied for all but its last use.
    std::vector<std::size_t> uses(expected_, 0);
    for (const auto& placeholder : placeholders) ++uses[placeholder.num];
    for (const auto& placeholder : placeholders) {
        auto& bytesOf = static_cast<std::vector<std::uint8_t>&>(received_[placeholder.num]);
        *placeholder.node = --uses[placeholder.num] == 0 ? Value::binary(std::move(bytesOf)) : Value::binary(bytesOf);
    }
    Packet packet = std::move(*pending_);
    reset();
    return packet;
}

void Decoder::reset() {
    pending_.reset();
    expected_ = 0;
    received_ = {};
}

}  // namespace halvora::sio::packet
