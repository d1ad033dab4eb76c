// Opening, refusing and ending connections against the official server.
#include "peer_fixture.h"

namespace halvora::sio_test {
namespace {

using sio::Status;

class Connection : public PeerTest {};

TEST_F(Connection, UsesTheConfiguredPathAndPresentsTheHeaders) {
    auto config = this->config();
    config.extraHeaders = {{"X-Halvora-Test", "one"}, {"X-Second", "two"}};
    auto manager = connect(config);
    ASSERT_TRUE(recorder_.waitFor("connect"));
    EXPECT_EQ(manager->status(), Status::connected);
    EXPECT_FALSE(manager->defaultSocket().id().empty());
    EXPECT_TRUE(manager->engine().connected());
    EXPECT_EQ(manager->engine().maxPayload(), 10u * 1024 * 1024);
    EXPECT_DOUBLE_EQ(manager->engine().pingInterval().count(), 0.5);
    EXPECT_DOUBLE_EQ(manager->engine().pingTimeout().count(), 1.0);

    auto headers = ask(manager->defaultSocket(), "headers", {});
    ASSERT_TRUE(headers);
    EXPECT_EQ((*headers)[0]["x-halvora-test"], "one");
    EXPECT_EQ((*headers)[0]["x-second"], "two");

    std::vector<std::string> statuses;
    for (const auto& event : recorder_.events()) {
        if (event.name == "statusChange") statuses.push_back(event.items.at(0).get<std::string>());
    }
    EXPECT_EQ(statuses, (std::vector<std::string>{"connecting", "connected"}));
}

TEST_F(Connection, ServerKickEndsItWithoutReconnectingAndConnectStartsAgain) {
    auto manager = connect(config());
    ASSERT_TRUE(recorder_.waitFor("connect"));
    manager->defaultSocket().emit("kick", {});
    EXPECT_EQ(recorder_.first("disconnect"), "io server disconnect");
    // Several reconnection delays pass; none may start an attempt.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(recorder_.count("reconnectAttempt"), 0);
    EXPECT_EQ(manager->status(), Status::disconnected);

    manager->connect();
    ASSERT_TRUE(recorder_.waitFor("connect", 2));
    EXPECT_TRUE(ask(manager->defaultSocket(), "echo", {"back"}));
}

TEST_F(Connection, ClientDisconnectStopsUntilConnectIsCalledAgain) {
    auto manager = connect(config());
    ASSERT_TRUE(recorder_.waitFor("connect"));
    manager->disconnect();
    EXPECT_EQ(recorder_.first("disconnect"), "io client disconnect");
    EXPECT_EQ(manager->status(), Status::disconnected);
    EXPECT_FALSE(manager->engine().connected());

    manager->defaultSocket().emit("echo", {"lost"});
    EXPECT_THAT(recorder_.first("error").dump(), HasSubstr("not connected"));
    // An acknowledgement that cannot come still ends in "NO ACK".
    auto answer = ask(manager->defaultSocket(), "echo", {"lost"}, sio::Seconds(0.2));
    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, sio::Items{"NO ACK"});
    EXPECT_EQ(recorder_.count("echo"), 0);
    EXPECT_EQ(recorder_.count("reconnectAttempt"), 0);

    manager->connect();
    ASSERT_TRUE(recorder_.waitFor("connect", 2));
    EXPECT_EQ(ask(manager->defaultSocket(), "echo", {"again"}), sio::Items{"again"});
}

TEST_F(Connection, RefusalReportsTheServersErrorAndRetriesWithNewHeaders) {
    auto config = this->config();
    config.extraHeaders = {{"Authorization", "Bearer refuse"}};
    auto manager = connect(config);
    EXPECT_EQ(recorder_.first("error")["message"], "refused");
    ASSERT_TRUE(recorder_.waitFor("reconnectAttempt"));

    manager->engine().setExtraHeaders({{"Authorization", "Bearer welcome"}});
    ASSERT_TRUE(recorder_.waitFor("connect"));
    EXPECT_TRUE(recorder_.waitFor("reconnect"));
    auto headers = ask(manager->defaultSocket(), "headers", {});
    ASSERT_TRUE(headers);
    EXPECT_EQ((*headers)[0]["authorization"], "Bearer welcome");
}

TEST_F(Connection, BadAddressesAndHeadersAreReportedAsErrors) {
    auto config = this->config();
    config.reconnects = false;
    {
        auto manager = connect(config, "ftp://127.0.0.1:1");
        EXPECT_THAT(recorder_.first("error").dump(), HasSubstr("scheme"));
        EXPECT_EQ(manager->status(), Status::disconnected);
    }
    {
        config.extraHeaders = {{"X-Bad", "line\r\nInjected: yes"}};
        auto manager = connect(config);
        EXPECT_THAT(recorder_.first("error", 2).dump(), HasSubstr("X-Bad"));
    }
    {
        // Nothing listens on port 1 (tcpmux) here.
        config.extraHeaders = {};
        auto manager = connect(config, wsUrl(1));
        EXPECT_THAT(recorder_.first("error", 3).dump(), HasSubstr("cannot connect"));
    }
}

}  // namespace
}  // namespace halvora::sio_test
