// The parts of reconnection and addressing that need no server.
#include <gtest/gtest.h>

#include "base/backoff.h"
#include "sio/detail/url.h"

namespace halvora::sio::detail {
namespace {

using Seconds = Backoff::Seconds;

TEST(ServerUrl, AcceptsTheFourSchemesWithDefaultAndExplicitPorts) {
    std::string error;
    auto plain = parseServerUrl("http://Example.com/ignored/path?q=1", &error);
    ASSERT_TRUE(plain) << error;
    EXPECT_FALSE(plain->secure);
    EXPECT_EQ(plain->host, "example.com");
    EXPECT_EQ(plain->port, "80");
    auto secure = parseServerUrl("wss://10.0.0.1:8443", &error);
    ASSERT_TRUE(secure) << error;
    EXPECT_TRUE(secure->secure);
    EXPECT_TRUE(secure->hostIsIpAddress);
    EXPECT_EQ(secure->port, "8443");
    auto v6 = parseServerUrl("https://[::1]:9000/", &error);
    ASSERT_TRUE(v6) << error;
    EXPECT_EQ(v6->host, "::1");
    EXPECT_EQ(v6->port, "9000");
    EXPECT_EQ(parseServerUrl("ws://localhost", &error)->port, "80");
    EXPECT_EQ(parseServerUrl("https://localhost", &error)->port, "443");
}

TEST(ServerUrl, RejectsWhatCannotBeConnectedTo) {
    for (const char* bad : {"", "example.com", "ftp://example.com", "ws://", "ws://:80",
                            "ws://host:0", "ws://host:65536", "ws://host:8o", "ws://user@host",
                            "ws://[::1", "ws://[nonsense]:80", "ws://bad host", "ws://host\r\n:1"}) {
        std::string error;
        EXPECT_FALSE(parseServerUrl(bad, &error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
}

TEST(ServerUrl, TargetEndsThePathWithOneSlashAndTheEngineQuery) {
    EXPECT_EQ(websocketTarget("/socket.io"), "/socket.io/?EIO=4&transport=websocket");
    EXPECT_EQ(websocketTarget("/custom/io//"), "/custom/io/?EIO=4&transport=websocket");
    EXPECT_EQ(websocketTarget("custom"), "/custom/?EIO=4&transport=websocket");
    EXPECT_EQ(websocketTarget("/"), "/?EIO=4&transport=websocket");
    EXPECT_FALSE(websocketTarget("/a b"));
    EXPECT_FALSE(websocketTarget("/a?b=1"));
    EXPECT_FALSE(websocketTarget("/a\r\nX: y"));
}

TEST(Backoff, FirstRetryIsImmediateThenGrowsWithinTheSpreadUpToTheCap) {
    Backoff exact(Seconds(2), Seconds(10), 0);
    EXPECT_EQ(exact.delay(1).count(), 0);
    EXPECT_DOUBLE_EQ(exact.delay(2).count(), 2);
    EXPECT_DOUBLE_EQ(exact.delay(3).count(), 3);
    EXPECT_DOUBLE_EQ(exact.delay(4).count(), 4.5);
    EXPECT_DOUBLE_EQ(exact.delay(20).count(), 10);
    EXPECT_DOUBLE_EQ(exact.delay(100000).count(), 10);

    Backoff spread(Seconds(2), Seconds(100), 0.5);
    bool varied = false;
    const double first = spread.delay(3).count();
    for (int i = 0; i < 200; ++i) {
        const double d = spread.delay(3).count();
        EXPECT_GE(d, 1.5);
        EXPECT_LE(d, 4.5);
        varied = varied || d != first;
    }
    EXPECT_TRUE(varied);
}

}  // namespace
}  // namespace halvora::sio::detail
