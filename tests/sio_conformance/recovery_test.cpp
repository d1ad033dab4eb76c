// Lost transports: dropped or silent servers, and reconnection. (Servers that go away, answer
// nothing or answer garbage are the demo's fault test.)
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

}  // namespace
}  // namespace halvora::sio_test
