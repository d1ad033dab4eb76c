// Any frames a Socket.IO server might send, through the packet decoder, the Engine.IO framing and
// the handshake reader. Every decoded packet is encoded again and must decode to itself.
//
// Input: a sequence of frames, each a kind byte, a 16-bit little-endian length (cut to what is
// left) and the bytes. Kind % 4: 0 text message, 1 binary attachment, 2 Engine.IO text frame
// (a message goes on to the decoder), 3 Engine.IO open packet's JSON.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "sio/packet.h"

namespace {

using namespace halvora::sio::packet;

// Plain and binary events (and acks) are the same packet; the encoder picks by content.
Type plainType(Type type) {
    if (type == Type::binaryEvent) return Type::event;
    if (type == Type::binaryAck) return Type::ack;
    return type;
}

void checkRoundTrip(const Packet& packet) {
    Encoded encoded = encode(packet);
    Decoder decoder;
    auto result = decoder.feedText(encoded.text);
    for (const auto& attachment : encoded.attachments) {
        if (!std::holds_alternative<Decoder::NeedMore>(result)) std::abort();
        result = decoder.feedBinary({reinterpret_cast<const char*>(attachment.data()), attachment.size()});
    }
    const auto* decoded = std::get_if<Packet>(&result);
    if (!decoded || plainType(decoded->type) != plainType(packet.type) || decoded->nsp != packet.nsp ||
        decoded->id != packet.id || decoded->data != packet.data) {
        std::abort();
    }
}

void check(const Decoder::Result& result) {
    const auto* packet = std::get_if<Packet>(&result);
    if (!packet) return;
    checkRoundTrip(*packet);
    if (plainType(packet->type) == Type::event && !splitEvent(packet->data)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Decoder decoder;
    std::size_t pos = 0;
    while (pos + 3 <= size) {
        std::uint8_t kind = data[pos] % 4;
        std::size_t length = data[pos + 1] | (data[pos + 2] << 8);
        pos += 3;
        if (length > size - pos) length = size - pos;
        std::string_view frame(reinterpret_cast<const char*>(data + pos), length);
        pos += length;

        switch (kind) {
            case 0: check(decoder.feedText(frame)); break;
            case 1: check(decoder.feedBinary(frame)); break;
            case 2:
                if (auto engine = decodeEngine(frame)) {
                    if (encodeEngine(engine->type, engine->data) != frame) std::abort();
                    if (engine->type == EngineType::message) check(decoder.feedText(engine->data));
                }
                break;
            case 3:
                if (auto handshake = decodeHandshake(frame)) {
                    if (handshake->sid.empty() || handshake->pingIntervalMs == 0 || handshake->pingTimeoutMs == 0 ||
                        handshake->maxPayload == 0) {
                        std::abort();
                    }
                }
                break;
        }
    }
    return 0;
}
