// Socket.IO 5 packet encoding: <type>[<attachments>-][<nsp>,][<id>][<json data>].
#include <string>
#include <utility>

#include "sio/packet.h"

namespace halvora::sio::packet {
namespace {

bool carriesItems(Type type) {
    return type == Type::event || type == Type::binaryEvent || type == Type::ack || type == Type::binaryAck;
}

// Replaces binary values by placeholders in depth-first order, moving their bytes out so that a
// large attachment is never copied here.
void extractBinaries(Value& node, std::vector<Binary>& attachments) {
    if (node.is_binary()) {
        Value placeholder = Value::object();
        placeholder["_placeholder"] = true;
        placeholder["num"] = attachments.size();
        attachments.push_back(std::move(node.get_binary()));
        node = std::move(placeholder);
    } else if (node.is_structured()) {
        for (auto& child : node) extractBinaries(child, attachments);
    }
}

// The wire type follows the content: binary values make an event or ack a binary one, their
// absence a plain one, whichever of the two the caller named.
Type wireType(Type type, bool hasAttachments) {
    if (type == Type::event || type == Type::binaryEvent) return hasAttachments ? Type::binaryEvent : Type::event;
    if (type == Type::ack || type == Type::binaryAck) return hasAttachments ? Type::binaryAck : Type::ack;
    return type;
}

}  // namespace

Encoded encode(const Packet& packet) {
    // One copy of the data (binary values included), which the other overload then moves from.
    return encode(Packet(packet));
}

Encoded encode(Packet&& packet) {
    Encoded encoded;
    // Attachments exist only for events and acks; elsewhere the data is plain JSON.
    if (carriesItems(packet.type)) extractBinaries(packet.data, encoded.attachments);

    std::string& text = encoded.text;
    text += static_cast<char>('0' + static_cast<int>(wireType(packet.type, !encoded.attachments.empty())));
    if (!encoded.attachments.empty()) {
        text += std::to_string(encoded.attachments.size());
        text += '-';
    }
    if (!packet.nsp.empty() && packet.nsp != "/") {
        text += packet.nsp;
        text += ',';
    }
    if (packet.id) text += std::to_string(*packet.id);
    // Null means "no data" (connect without auth, disconnect). Invalid UTF-8 from the caller is
    // replaced rather than thrown on: encoding must not fail.
    if (!packet.data.is_null() && !packet.data.is_discarded()) {
        text += packet.data.dump(-1, ' ', false, Value::error_handler_t::replace);
    }
    return encoded;
}

std::optional<std::pair<std::string, Items>> splitEvent(const Value& data) {
    if (!data.is_array() || data.empty() || !data.front().is_string()) return std::nullopt;
    Items items(data.begin() + 1, data.end());
    return std::pair{data.front().get<std::string>(), std::move(items)};
}

}  // namespace halvora::sio::packet
