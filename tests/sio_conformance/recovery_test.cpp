// Lost transports: dropped, silent or restarted servers, and reconnection.
#include "peer_fixture.h"

namespace halvora::sio_test {
namespace {

class Recovery : public PeerTest {};

TEST_F(Recovery, DroppedTransportReconnectsWithTheCurrentHeaders) {
    auto config = this->config();
    config.extraHeaders = {{"X-Token", "first"}};
    auto manager = connect(config);
    ASSERT_TRUE(recorder_.waitFor("connect"));

    manager->engine().setExtraHeaders({{"X-Token", "second"}});
    manager->defaultSocket().emit("drop", {});
    EXPECT_EQ(recorder_.first("disconnect"), "transport close");
    EXPECT_EQ(recorder_.first("reconnectAttempt"), 1);
    EXPECT_EQ(recorder_.first("reconnect"), 1);
    ASSERT_TRUE(recorder_.waitFor("connect", 2));

    auto headers = ask(manager->defaultSocket(), "headers", {});
    ASSERT_TRUE(headers);
    EXPECT_EQ((*headers)[0]["x-token"], "second");
}

TEST_F(Recovery, SilentPeerIsDeclaredDeadAndReplaced) {
    auto manager = connect(config());
    ASSERT_TRUE(recorder_.waitFor("connect"));
    // The muted server keeps the TCP connection open but sends nothing, pings included.
    manager->defaultSocket().emit("mute", {});
    EXPECT_EQ(recorder_.first("disconnect"), "ping timeout");
    ASSERT_TRUE(recorder_.waitFor("connect", 2));
    EXPECT_EQ(ask(manager->defaultSocket(), "echo", {"alive"}), sio::Items{"alive"});
}

TEST_F(Recovery, RestartedServerIsFoundAgain) {
    auto peer = std::make_unique<PrivatePeer>();
    ASSERT_GT(peer->port(), 0);
    const int port = peer->port();
    auto config = this->config();
    config.path = "/socket.io";
    auto manager = connect(config, wsUrl(port));
    ASSERT_TRUE(recorder_.waitFor("connect"));

    peer->stop();
    ASSERT_TRUE(recorder_.waitFor("disconnect"));
    // With the server away, attempts fail and are reported.
    ASSERT_TRUE(recorder_.waitFor("error"));
    peer = std::make_unique<PrivatePeer>(port);
    ASSERT_EQ(peer->port(), port);
    ASSERT_TRUE(recorder_.waitFor("reconnect"));
    EXPECT_EQ(ask(manager->defaultSocket(), "echo", {"back"}), sio::Items{"back"});
}

TEST_F(Recovery, AttemptsStopAtTheConfiguredLimit) {
    PrivatePeer gone;
    const int port = gone.port();
    gone.stop();
    auto config = this->config();
    config.reconnectAttempts = 2;
    config.reconnectWait = sio::Seconds(0.05);
    auto manager = connect(config, wsUrl(port));
    EXPECT_THAT(recorder_.first("error", 4).dump(), HasSubstr("gave up"));
    EXPECT_EQ(recorder_.count("reconnectAttempt"), 2);
    EXPECT_EQ(manager->status(), sio::Status::disconnected);
}

}  // namespace
}  // namespace halvora::sio_test
