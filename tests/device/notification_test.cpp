// The notification connection and the other ways into a session. That an agent-started session is
// joined through it runs against the reference service in tests/cli/listen_e2e.mjs and
// tests/faults/faults_e2e.mjs; here: when it opens, that a lost connection stays stopped until the
// device registers afresh, and which payloads and links are not the library's.
#include <gtest/gtest.h>

#include "halvora/app_events.h"
#include "halvora/halvora.h"
#include "device/device.h"
#include "protocol/wire_headers.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

const char* kWithUrl = R"({"id":"d","next_registration":600,"notification_url":"http://svc","notification_token":"n1"})";

class NotificationTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        halvora.setApi("http://svc");
        halvora.start();
    }
    void answerRegistration(const std::string& json) {
        http->respondJson(200, json);
        runPending();
    }
    Halvora& halvora = Halvora::instance();
};

TEST_F(NotificationTest, OpensOnceTheRecordHasAUrlAndIsRetriedOnlyWithoutPush) {
    device->push = true;
    answerRegistration(R"({"id":"d","next_registration":600})");
    EXPECT_TRUE(sockets->made.empty());
    halvora.device()->registerDevice(nullptr);
    answerRegistration(kWithUrl);
    ASSERT_EQ(sockets->made.size(), 1u);
    auto socket = sockets->made[0];
    EXPECT_EQ(socket->config.reconnectWait, 2.0);
    EXPECT_EQ(socket->config.extraHeaders.size(), 3u);  // no credential stored, none presented

    socket->fire("reconnectAttempt", {Json(1)});
    EXPECT_EQ(socket->disconnects, 1);
    halvora.device()->registerDevice(nullptr);
    answerRegistration(kWithUrl);
    EXPECT_EQ(sockets->made.size(), 1u);

    halvora.stop();  // deregistration drops the stopped connection
    http->respond(204, "");
    runPending();
    EXPECT_EQ(socket->disconnects, 2);
    EXPECT_FALSE(halvora.device()->notificationSocket());

    // On a desktop the connection is the only way in: the client keeps reconnecting.
    device->push = false;
    halvora.start();
    answerRegistration(kWithUrl);
    ASSERT_EQ(sockets->made.size(), 2u);
    sockets->made[1]->fire("reconnectAttempt", {Json(1)});
    EXPECT_EQ(sockets->made[1]->disconnects, 0);
}

// The connection presents the device credential too, when one is stored, and keeps presenting
// it when the headers are rebuilt.
TEST_F(NotificationTest, AnErrorPresentsTheCurrentTokenHalfASecondLaterWithTheCredential) {
    store->set(kDeviceCredentialKey, "k3y");
    answerRegistration(kWithUrl);
    auto socket = sockets->made[0];
    const platform::HeaderList expected{{"Authorization", "Bearer n1"},
                                        {"X-HalvoraSDKVersion", kHalvoraVersion},
                                        {"X-HalvoraPlatform", "linux"},
                                        {"X-HalvoraDeviceCredential", "k3y"}};
    EXPECT_EQ(socket->config.extraHeaders, expected);
    halvora.device()->registerDevice(nullptr);
    answerRegistration(R"({"id":"d","next_registration":600,"notification_url":"http://svc","notification_token":"n2"})");
    socket->fire("error", {Json{{"message", "Unauthorized"}}});
    EXPECT_EQ(countLog(R"(error {"message":"Unauthorized"})"), 1);
    advance(std::chrono::milliseconds(499));
    EXPECT_EQ(socket->bearer(), "n1");
    advance(std::chrono::milliseconds(1));
    EXPECT_EQ(socket->bearer(), "n2");
    EXPECT_EQ(socket->config.extraHeaders.back(), expected.back());
    EXPECT_EQ(http->pendingCount(), 0u);  // nothing is fetched for it
}

TEST_F(NotificationTest, PayloadsThatAreNotTheLibrarysAreIgnoredAndAPushTokenRegisters) {
    for (const Json& flag : {Json(1), Json("true")}) {
        EXPECT_TRUE(Halvora::isHalvoraNotification(Json{{"halvora-notification", flag}})) << flag;
    }
    for (const Json& other : {Json{{"halvora-notification", "TRUE"}}, Json{{"halvora-notification", "yes"}},
                              Json{{"halvora-notification", false}}, Json{{"aps", Json::object()}}, Json::array({true})}) {
        EXPECT_FALSE(Halvora::isHalvoraNotification(other)) << other;
    }

    answerRegistration(kWithUrl);
    auto sent = http->sent().size();
    Halvora::onPushNotification(Json{{"halvora-notification", true}, {"halvora-code", 123456}});
    Halvora::onPushNotification(Json{{"halvora-notification", "yes"}, {"halvora-code", "123456"}});
    sockets->made[0]->fire("notification", {});
    EXPECT_EQ(http->sent().size(), sent);
    HalvoraAppEvents::didRegisterForRemoteNotifications({0xab, 0x01});  // a push token registers at once
    EXPECT_EQ(bodyOf(http->lastSent())["push_token"], "ab01");
}

TEST_F(NotificationTest, SessionLinksToTheLinkHostAreJoined) {
    answerRegistration(kWithUrl);
    auto sent = http->sent().size();
    HalvoraAppEvents::didOpenUrl("https://example.com/session/123456");  // the application's own
    HalvoraAppEvents::didOpenUrl("https://link.halvora.io/session/12345");
    HalvoraAppEvents::didOpenUrl("https://link.halvora.io");
    EXPECT_EQ(http->sent().size(), sent);
    EXPECT_EQ(countLog("halvora link invalid session 12345 https://link.halvora.io/session/12345"), 1);
    EXPECT_EQ(countLog("expected halvora link to have 3 components"), 1);

    HalvoraAppEvents::didOpenUrl("https://LINK.halvora.io/x/session/654321?via=sms");
    Halvora::onInterceptedURL("https://link.halvora.io/session/1234567");
    EXPECT_EQ(countLog("expected halvora link to have 3 components"), 2);
    EXPECT_EQ(countLog("halvora link invalid session 1234567 https://link.halvora.io/session/1234567"), 1);
    EXPECT_EQ(http->sent().size(), sent);  // "x" is not a session link

    // Four components: logged, and still joined since the kind and the code are right.
    Halvora::onInterceptedURL("https://link.halvora.io/session/extra/777888");
    EXPECT_EQ(countLog("expected halvora link to have 3 components"), 3);
    EXPECT_EQ(http->lastSent().url, "http://svc/api/1/sessions/777888");
    http->fail();
    runPending();
    EXPECT_EQ(countLog(R"(Error joining session Error Domain=curl Code=7 "Couldn't connect to server")"), 1);

    HalvoraAppEvents::didOpenUrl("halvora://link.halvora.io/session/654321");
    EXPECT_EQ(http->lastSent().url, "http://svc/api/1/sessions/654321");
}

}  // namespace
}  // namespace halvora
