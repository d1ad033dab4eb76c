// Config from the dictionary form, and acknowledgements.
#include <gtest/gtest.h>

#include "sio/config.h"
#include "sio/detail/default_executor.h"
#include "sio/socket.h"

namespace halvora::sio {
namespace {

TEST(SioConfig, ReadsTheDictionaryForm) {
    Value options = {{"path", "/sockets/1/events"},
                     {"extraHeaders", {{"Authorization", "Bearer t"}, {"X-Device", "d1"}}},
                     {"reconnects", false},
                     {"reconnectAttempts", -1},
                     {"reconnectWait", 2},
                     {"reconnectWaitMax", 7.5},
                     {"randomizationFactor", 0.25},
                     {"somethingElse", "ignored"}};
    auto config = Config::fromJson(options);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->path, "/sockets/1/events");
    EXPECT_EQ(config->extraHeaders, (Headers{{"Authorization", "Bearer t"}, {"X-Device", "d1"}}));
    EXPECT_FALSE(config->reconnects);
    EXPECT_EQ(config->reconnectAttempts, -1);
    EXPECT_EQ(config->reconnectWait.count(), 2);
    EXPECT_EQ(config->reconnectWaitMax.count(), 7.5);
    EXPECT_EQ(config->randomizationFactor, 0.25);

    auto defaults = Config::fromJson(Value::object());
    ASSERT_TRUE(defaults);
    EXPECT_EQ(defaults->path, "/socket.io");
    EXPECT_EQ(defaults->reconnectWait.count(), 10);
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

TEST(SioAck, SendsOnce) {
    std::vector<Items> sent;
    Ack ack([&sent](Items items) { sent.push_back(std::move(items)); });
    EXPECT_TRUE(ack.expected());
    ack({1, "two"});
    ack({3});
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], (Items{1, "two"}));
    EXPECT_FALSE(ack.expected());
    Ack()();  // not requested: nothing to call
}

}  // namespace
}  // namespace halvora::sio
