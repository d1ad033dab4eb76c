// The Socket.IO and Engine.IO decoders' refusal of malformed input from a peer, and the options'
// dictionary form. Every packet type, binary attachments included, travels to and from the official
// server in tests/sio_conformance, acknowledgements (sent once) too.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sio/config.h"
#include "sio/packet.h"

namespace halvora::sio::packet {
namespace {

Value bytes(std::vector<std::uint8_t> data) { return binary(std::move(data)); }
bool isError(const Decoder::Result& result) { return std::holds_alternative<Decoder::Error>(result); }

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

// The handshake the official server sends is read in tests/sio_conformance/connection_test.cpp.
TEST(EnginePacket, RejectsBadFramesAndHandshakes) {
    EXPECT_FALSE(decodeEngine(""));
    EXPECT_FALSE(decodeEngine("7"));
    EXPECT_EQ(decodeHandshake(R"({"sid":"s","upgrades":["websocket"],"pingInterval":1,"pingTimeout":2})")->maxPayload,
              1000000u);  // the default when absent
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

TEST(SioConfig, RefusesWrongTypesWithTheReason) {
    struct Case {
        Value options;
        std::string reason;
    };
    const Case cases[] = {
        {Value::array(), "options must be an object"},
        {{{"path", 5}}, "path: must be a string"},
        {{{"path", "socket.io"}}, "path: must start with '/' and contain no spaces"},
        {{{"extraHeaders", Value::array()}}, "extraHeaders: must be an object of strings"},
        {{{"extraHeaders", {{"A", 1}}}}, "extraHeaders: value of 'A' must be a string"},
        {{{"extraHeaders", {{"Bad Name", "v"}}}}, "extraHeaders: 'Bad Name' is not a valid header name"},
        {{{"extraHeaders", {{"A", "v\r\nInjected: 1"}}}}, "extraHeaders: value of 'A' contains control characters"},
        {{{"reconnects", "yes"}}, "reconnects: must be a boolean"},
        {{{"reconnectAttempts", 1.5}}, "reconnectAttempts: must be an integer"},
        {{{"reconnectAttempts", 4294967296}}, "reconnectAttempts: must be an integer"},
        {{{"reconnectWaitMax", -1}}, "reconnectWaitMax: must be between 0 and 86400"},
        {{{"randomizationFactor", 2}}, "randomizationFactor: must be between 0 and 1"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(Config::fromJson(c.options, &error)) << c.options.dump();
        EXPECT_EQ(error, c.reason);
    }
}

}  // namespace
}  // namespace halvora::sio::packet
