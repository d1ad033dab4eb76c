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
    auto reason = recorder_.waitFor("disconnect");
    ASSERT_TRUE(reason);
    EXPECT_EQ(reason->at(0), "transport close");
    auto attempt = recorder_.waitFor("reconnectAttempt");
    ASSERT_TRUE(attempt);
    EXPECT_EQ(attempt->at(0), 1);
    auto reconnected = recorder_.waitFor("reconnect");
    ASSERT_TRUE(reconnected);
    EXPECT_EQ(reconnected->at(0), 1);
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
    auto reason = recorder_.waitFor("disconnect");
    ASSERT_TRUE(reason);
    EXPECT_EQ(reason->at(0), "ping timeout");
    ASSERT_TRUE(recorder_.waitFor("connect", 2));
    EXPECT_EQ(ask(manager->defaultSocket(), "echo", {"alive"}), sio::Items{"alive"});
}

TEST_F(Recovery, RestartedServerIsFoundAgain) {
    auto peer = std::make_unique<PrivatePeer>();
    ASSERT_GT(peer->port(), 0);
    const int port = peer->port();
    auto config = this->config();
    config.path = "/socket.io";
    auto manager = connect(config, "ws://127.0.0.1:" + std::to_string(port));
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
    auto manager = connect(config, "ws://127.0.0.1:" + std::to_string(port));
    auto gaveUp = recorder_.waitFor("error", 4);
    ASSERT_TRUE(gaveUp);
    EXPECT_NE(gaveUp->at(0).get<std::string>().find("gave up"), std::string::npos);
    EXPECT_EQ(recorder_.count("reconnectAttempt"), 2);
    EXPECT_EQ(manager->status(), sio::Status::disconnected);
}

}  // namespace
}  // namespace halvora::sio_test
