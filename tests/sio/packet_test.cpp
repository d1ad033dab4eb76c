// The Socket.IO and Engine.IO wire formats: the protocol document's examples, round trips, and
// the refusal of malformed input from a peer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sio/packet.h"

namespace halvora::sio::packet {
namespace {

Value bytes(std::vector<std::uint8_t> data) { return binary(std::move(data)); }

bool isError(const Decoder::Result& result) { return std::holds_alternative<Decoder::Error>(result); }

// Encodes, then feeds the text and every attachment to a fresh decoder.
Packet roundTrip(const Packet& packet) {
    Encoded encoded = encode(packet);
    Decoder decoder;
    auto result = decoder.feedText(encoded.text);
    for (const auto& attachment : encoded.attachments) {
        EXPECT_TRUE(std::holds_alternative<Decoder::NeedMore>(result)) << encoded.text;
        result = decoder.feedBinary({reinterpret_cast<const char*>(attachment.data()), attachment.size()});
    }
    auto* decoded = std::get_if<Packet>(&result);
    if (!decoded) ADD_FAILURE() << "not decoded: " << encoded.text;
    return decoded ? *decoded : Packet{};
}

// Each example both ways: the packet encodes to the text (and attachments), and decodes back.
TEST(SioPacket, EncodesAndDecodesTheProtocolExamples) {
    struct Example {
        Packet packet;
        std::string text;
        std::vector<Binary> attachments;
    };
    const Example examples[] = {
        {{Type::event, "/", std::nullopt, Value::array({"hello", 1})}, R"(2["hello",1])", {}},
        {{Type::ack, "/admin", 13, Value::array({"bar"})}, R"(3/admin,13["bar"])", {}},
        {{Type::connectError, "/", std::nullopt, {{"message", "Not authorized"}}}, R"(4{"message":"Not authorized"})", {}},
        {{Type::connect, "/", std::nullopt, nullptr}, "0", {}},
        {{Type::connect, "/", std::nullopt, {{"sid", "abc"}}}, R"(0{"sid":"abc"})", {}},
        {{Type::disconnect, "/admin", std::nullopt, nullptr}, "1/admin,", {}},
        {{Type::event, "/", std::nullopt, Value::array({"hello", bytes({1, 2, 3})})},
         R"(51-["hello",{"_placeholder":true,"num":0}])", {Binary({1, 2, 3})}},
        {{Type::ack, "/", 15, Value::array({"bar", bytes({4})})}, R"(61-15["bar",{"_placeholder":true,"num":0}])",
         {Binary({4})}},
    };
    for (const auto& [packet, text, attachments] : examples) {
        SCOPED_TRACE(text);
        const Encoded encoded = encode(packet);
        EXPECT_EQ(encoded.text, text);
        EXPECT_EQ(encoded.attachments, attachments);

        Decoder decoder;
        auto result = decoder.feedText(text);
        for (const auto& attachment : attachments) {
            EXPECT_TRUE(decoder.awaitingAttachments());
            result = decoder.feedBinary({reinterpret_cast<const char*>(attachment.data()), attachment.size()});
        }
        EXPECT_FALSE(decoder.awaitingAttachments());
        const auto* decoded = std::get_if<Packet>(&result);
        ASSERT_TRUE(decoded);
        const Type wireType = attachments.empty()      ? packet.type
                              : packet.type == Type::ack ? Type::binaryAck
                                                       : Type::binaryEvent;
        EXPECT_EQ(decoded->type, wireType);
        EXPECT_EQ(decoded->nsp, packet.nsp);
        EXPECT_EQ(decoded->id, packet.id);
        EXPECT_EQ(decoded->data, packet.data);
    }
}

TEST(SioPacket, RoundTripsNamespacesIdsAndNestedBinaries) {
    Packet plain{Type::event, "/chat", 42, Value::array({"msg", {{"a", Value::array({1, "x", nullptr})}}})};
    Packet decoded = roundTrip(plain);
    EXPECT_EQ(decoded.nsp, "/chat");
    EXPECT_EQ(decoded.id, 42u);
    EXPECT_EQ(decoded.data, plain.data);

    // Binaries inside objects and arrays come back in place, in depth-first order.
    Value nested = Value::array({"frame", {{"jpeg", bytes({0xff, 0xd8})}, {"list", Value::array({bytes({}), bytes({7})})}},
                                 bytes({9, 9})});
    Packet binaryPacket{Type::event, "/", 18446744073709551615ull, nested};
    Encoded encoded = encode(binaryPacket);
    ASSERT_EQ(encoded.attachments.size(), 4u);
    EXPECT_EQ(encoded.attachments[0], Binary({0xff, 0xd8}));
    EXPECT_EQ(encoded.attachments[3], Binary({9, 9}));
    decoded = roundTrip(binaryPacket);
    EXPECT_EQ(decoded.type, Type::binaryEvent);
    EXPECT_EQ(decoded.id, 18446744073709551615ull);
    EXPECT_EQ(decoded.data, nested);

    EXPECT_EQ(roundTrip({Type::ack, "/x", 0, Value::array({bytes({1})})}).type, Type::binaryAck);
}

TEST(SioPacket, EncodingMovesAttachmentsOutOfAnRvalue) {
    std::vector<std::uint8_t> jpeg(30000, 0xab);
    Packet packet{Type::event, "/", std::nullopt, Value::array({"frame", bytes(jpeg)})};
    const auto* original = packet.data[1].get_binary().data();
    Encoded encoded = encode(std::move(packet));
    ASSERT_EQ(encoded.attachments.size(), 1u);
    EXPECT_EQ(encoded.attachments[0].data(), original);
}

TEST(SioPacket, PlaceholderReferencesMayRepeatOrComeOutOfOrder) {
    Decoder decoder;
    decoder.feedText(R"(52-["e",{"_placeholder":true,"num":1},{"_placeholder":true,"num":0},{"_placeholder":true,"num":1}])");
    decoder.feedBinary("A");
    auto result = decoder.feedBinary("B");
    ASSERT_TRUE(std::holds_alternative<Packet>(result));
    EXPECT_EQ(std::get<Packet>(result).data, Value::array({"e", bytes({'B'}), bytes({'A'}), bytes({'B'})}));
}

TEST(SioPacket, RejectsMalformedText) {
    const char* invalid[] = {
        "",                              // nothing
        "7[\"a\"]",                      // unknown type
        "2",                             // event without data
        "2{\"a\":1}",                    // event data not an array
        "2[]",                           // no event name
        "2[1,2]",                        // event name not a string
        "0[]",                           // connect data not an object
        "0null",                         // nor null
        "1[\"a\"]",                      // disconnect with data
        "4",                             // connect error without data
        "4[1]",                          // connect error data neither object nor string
        "2[\"a\"",                       // truncated JSON
        "2[\"a\"]x",                     // trailing garbage
        "218446744073709551616[\"a\"]",  // id beyond uint64
        "5[\"a\"]",                      // binary event without count
        "51[\"a\"]",                     // count without '-'
        "21-[\"a\"]",                    // a count on a plain type: read as an id, then "-[" is no JSON
        "51001-[\"a\"]",                 // more attachments than allowed
        "599999999999999999999999-[\"a\"]",
        "2[\"\xff\"]",                   // invalid UTF-8
    };
    for (const char* text : invalid) {
        Decoder decoder;
        EXPECT_TRUE(isError(decoder.feedText(text))) << text;
        EXPECT_FALSE(decoder.awaitingAttachments()) << text;
    }
    Decoder decoder;
    EXPECT_TRUE(isError(decoder.feedText("2" + std::string(200, '[') + "\"a\"" + std::string(200, ']'))));
    EXPECT_FALSE(isError(decoder.feedText("2[\"a\"," + std::string(100, '[') + std::string(100, ']') + "]")));
}

TEST(SioPacket, RejectsBadPlaceholdersAndAttachmentOrder) {
    const char* badPlaceholders[] = {
        R"(51-["a",{"_placeholder":true,"num":1}])",
        R"(51-["a",{"_placeholder":true,"num":-1}])",
        R"(51-["a",{"_placeholder":true,"num":0.5}])",
        R"(51-["a",{"_placeholder":true}])",
        R"(50-["a",{"_placeholder":true,"num":0}])",
    };
    for (const char* text : badPlaceholders) {
        Decoder decoder;
        EXPECT_TRUE(isError(decoder.feedText(text))) << text;
        EXPECT_FALSE(decoder.awaitingAttachments()) << text;
    }

    Decoder decoder;
    EXPECT_TRUE(isError(decoder.feedBinary("stray")));

    // A text packet while attachments are pending is refused and the decoder starts over.
    decoder.feedText(R"(52-["a",{"_placeholder":true,"num":0}])");
    decoder.feedBinary("1");
    EXPECT_TRUE(isError(decoder.feedText(R"(2["b"])")));
    EXPECT_FALSE(decoder.awaitingAttachments());
    EXPECT_TRUE(isError(decoder.feedBinary("2")));
    EXPECT_EQ(std::get<Packet>(decoder.feedText(R"(2["b"])")).data, Value::array({"b"}));

    decoder.feedText(R"(51-["a",{"_placeholder":true,"num":0}])");
    decoder.reset();
    EXPECT_TRUE(isError(decoder.feedBinary("1")));
}

TEST(SioPacket, SplitsEvents) {
    auto event = splitEvent(Value::array({"news", 1, {{"a", true}}}));
    ASSERT_TRUE(event);
    EXPECT_EQ(event->first, "news");
    EXPECT_EQ(event->second, (Items{1, {{"a", true}}}));
    EXPECT_FALSE(splitEvent(Value::array()));
    EXPECT_FALSE(splitEvent(Value::array({1})));
    EXPECT_FALSE(splitEvent(Value::object()));
}

TEST(EnginePacket, FramesAndHandshake) {
    EXPECT_EQ(encodeEngine(EngineType::message, R"(2["a"])"), R"(42["a"])");
    EXPECT_EQ(encodeEngine(EngineType::pong), "3");
    auto message = decodeEngine(R"(42["a"])");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, EngineType::message);
    EXPECT_EQ(message->data, R"(2["a"])");
    EXPECT_FALSE(decodeEngine(""));
    EXPECT_FALSE(decodeEngine("7"));

    auto handshake = decodeHandshake(
        R"({"sid":"lv_VI97HAXpY6yYWAAAC","upgrades":[],"pingInterval":25000,"pingTimeout":5000,"maxPayload":1000000})");
    ASSERT_TRUE(handshake);
    EXPECT_EQ(handshake->sid, "lv_VI97HAXpY6yYWAAAC");
    EXPECT_EQ(handshake->pingIntervalMs, 25000u);
    EXPECT_EQ(handshake->pingTimeoutMs, 5000u);
    EXPECT_EQ(handshake->maxPayload, 1000000u);
    EXPECT_EQ(decodeHandshake(R"({"sid":"s","upgrades":["websocket"],"pingInterval":1,"pingTimeout":2})")->maxPayload, 1000000u);

    const char* invalid[] = {
        "",
        "[]",
        R"({"upgrades":[],"pingInterval":1,"pingTimeout":1})",
        R"({"sid":"","upgrades":[],"pingInterval":1,"pingTimeout":1})",
        R"({"sid":"s","upgrades":[1],"pingInterval":1,"pingTimeout":1})",
        R"({"sid":"s","upgrades":[],"pingInterval":0,"pingTimeout":1})",
        R"({"sid":"s","upgrades":[],"pingInterval":-5,"pingTimeout":1})",
        R"({"sid":"s","upgrades":[],"pingInterval":1.5,"pingTimeout":1})",
        R"({"sid":"s","upgrades":[],"pingInterval":4294967296,"pingTimeout":1})",
        R"({"sid":"s","upgrades":[],"pingInterval":1})",
        R"({"sid":"s","upgrades":[],"pingInterval":1,"pingTimeout":1,"maxPayload":0})",
    };
    for (const char* json : invalid) EXPECT_FALSE(decodeHandshake(json)) << json;
}

}  // namespace
}  // namespace halvora::sio::packet
