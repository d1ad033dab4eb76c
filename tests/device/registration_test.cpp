// Device registration: identifier, body, custom data, the loop's schedule, the credential, and
// deregistration.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "device/device.h"
#include "protocol/wire_headers.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using std::chrono::seconds;

class RegistrationTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        halvora.setApi("http://svc");
    }
    std::size_t sentCount() const { return http->sent().size(); }
    void answerRegistration(const std::string& json = R"({"id":"d","next_registration":600})") {
        http->respondJson(200, json);
        runPending();
    }

    Halvora& halvora = Halvora::instance();
    std::shared_ptr<HLVDevice> dev = halvora.device();
};

TEST_F(RegistrationTest, BodyKeysInOrderTokenInLowerCaseHexAndCustomDataMerged) {
    EXPECT_EQ(HLVDevice::stringWithDeviceToken({0x00, 0x10, 0xab}), "0010ab");
    halvora.start();
    Json body = bodyOf(http->lastSent());
    body.erase("device");
    EXPECT_EQ(body.dump(), R"({"push_token":"","push_provider":"APNS"})");
    answerRegistration();
    dev->setToken(std::vector<std::uint8_t>{0xde, 0xad, 0x01});
    EXPECT_EQ(sentCount(), 1u);  // setting the token does not register by itself

    halvora.setCustomData({{"a", 1}});
    halvora.setCustomData({{"b", 2}, {"skip", nullptr}});
    EXPECT_EQ(bodyOf(http->lastSent())["push_token"], "dead01");
    EXPECT_EQ(bodyOf(http->lastSent())["custom_data"], (Json{{"a", 1}, {"b", 2}}));
    halvora.setCustomData({{"a", "replaced"}});
    EXPECT_EQ(bodyOf(http->lastSent())["custom_data"], (Json{{"a", "replaced"}, {"b", 2}}));
}

TEST_F(RegistrationTest, DelayIsClampedToOneMinuteToOneHour) {
    const std::vector<std::pair<Json, long>> table = {
        {0, 60}, {59, 60}, {60, 60}, {61, 61}, {3599, 3599}, {3600, 3600}, {100000, 3600},
        {-5, 60}, {120.9, 120}, {"120", 60}, {nullptr, 60}};
    for (const auto& [value, expected] : table) {
        EXPECT_EQ(HLVDevice::registrationDelay(std::nullopt, value), seconds(expected)) << value;
    }
    EXPECT_EQ(HLVDevice::registrationDelay(std::nullopt, std::nullopt), seconds(60));
    EXPECT_EQ(HLVDevice::registrationDelay(HLVError("x", 500), Json(600)), seconds(60));
}

TEST_F(RegistrationTest, LoopRegistersAgainAfterTheAnsweredDelay) {
    halvora.start();
    answerRegistration(R"({"id":"d","next_registration":120})");
    EXPECT_TRUE(dev->hasPendingRegistration());
    advance(seconds(119));
    EXPECT_EQ(sentCount(), 1u);
    advance(seconds(1));
    ASSERT_EQ(sentCount(), 2u);
    EXPECT_EQ(http->lastSent().method, "PUT");
    http->fail();  // an error waits 60 s
    runPending();
    EXPECT_EQ(countLog("Halvora registration error: Error Domain=curl Code=7 \"Couldn't connect to server\""), 1);
    advance(seconds(59));
    EXPECT_EQ(sentCount(), 2u);
    advance(seconds(1));
    EXPECT_EQ(sentCount(), 3u);
}

TEST_F(RegistrationTest, RestartingTheLoopKeepsOneTimer) {
    halvora.start();
    answerRegistration();
    dev->runRegistrationLoop();
    answerRegistration();
    dev->runRegistrationLoop();
    answerRegistration();
    EXPECT_EQ(loop->pendingTimerCount(), 1u);
    EXPECT_EQ(sentCount(), 3u);
    advance(seconds(600));
    EXPECT_EQ(sentCount(), 4u);  // one chain, one registration per period
}

// The service issues a credential with a device's first registration. It goes to the store, never
// into the record, and with every request after it; a refused one makes the device start over,
// once, as a new device (a restored backup whose credential the service no longer knows).
TEST_F(RegistrationTest, TheCredentialIsKeptOutOfTheRecordSentAfterwardsAndARefusalStartsOverOnce) {
    const std::string credential(64, 'c');
    const auto authorization = [&](const std::string& value) {
        return std::pair<std::string, std::string>{"Authorization", "Bearer " + value};
    };
    const auto answerWith = [&](const Json& value) {
        Json record{{"id", "d"}, {"next_registration", 600}, {"notification_url", "http://svc"},
                    {"notification_token", "n"}, {"credential", value}};
        answerRegistration(record.dump());
    };
    halvora.start();
    EXPECT_EQ(http->lastSent().headers.size(), 3u);  // none stored: the wire as before
    answerWith(credential);
    EXPECT_EQ(store->get(kDeviceCredentialKey), credential);
    EXPECT_FALSE(dev->field("credential"));
    ASSERT_EQ(sockets->made.size(), 1u);

    // What cannot be a credential is dropped from the record and changes nothing stored.
    for (const Json& bad : {Json(""), Json("with space"), Json(std::string(513, 'c')), Json("tab\t"),
                            Json("caf\u00e9"), Json(42), Json()}) {
        dev->registerDevice(nullptr);
        EXPECT_EQ(http->lastSent().headers.back(), authorization(credential)) << bad;
        answerWith(bad);
        EXPECT_EQ(store->get(kDeviceCredentialKey), credential) << bad;
        EXPECT_FALSE(dev->field("credential")) << bad;
    }
    for (const auto& line : logLines()) EXPECT_EQ(line.find(credential), std::string::npos) << line;

    const std::string oldId = dev->id();
    dev->runRegistrationLoop();
    http->respondJson(401, R"({"message":"Unauthorized"})");
    runPending();
    EXPECT_EQ(countLog("Halvora device credential refused; registering as a new device"), 1);
    EXPECT_FALSE(store->get(kDeviceCredentialKey));
    EXPECT_NE(dev->id(), oldId);
    EXPECT_FALSE(dev->resource());
    EXPECT_FALSE(dev->notificationSocket());
    EXPECT_EQ(sockets->made[0]->disconnects, 1);
    ASSERT_EQ(http->pendingCount(), 1u);  // at once, as the new device, without a credential
    EXPECT_EQ(http->lastSent().url, "http://svc/api/1/devices/" + dev->id());
    EXPECT_EQ(http->lastSent().headers.size(), 3u);

    // Refused again: no second start over; the loop waits its minute after an error.
    const std::string newId = dev->id();
    http->respondJson(401, R"({"message":"Unauthorized"})");
    runPending();
    EXPECT_EQ(http->pendingCount(), 0u);
    advance(seconds(60));
    answerWith("fresh-credential");
    EXPECT_EQ(countLog("Halvora device credential refused; registering as a new device"), 1);
    EXPECT_EQ(dev->id(), newId);
    EXPECT_EQ(store->get(kDeviceCredentialKey), "fresh-credential");
}

TEST_F(RegistrationTest, DeregisterCancelsTheTimerDropsDataAndRecordAtOnce) {
    halvora.setCustomData({{"a", 1}});  // stopped: kept for the first registration, nothing sent
    EXPECT_EQ(sentCount(), 0u);
    halvora.start();
    EXPECT_EQ(bodyOf(http->lastSent())["custom_data"], (Json{{"a", 1}}));
    answerRegistration();
    ASSERT_TRUE(dev->resource());
    std::string id = dev->id();
    store->set(kDeviceCredentialKey, std::string(64, 'c'));

    // Deregistering at the service runs in tests/cli/doctor_test.sh.
    dev->deregister(nullptr);
    EXPECT_FALSE(dev->resource());  // without waiting for the answer
    EXPECT_FALSE(dev->customData());
    EXPECT_FALSE(dev->hasPendingRegistration());
    EXPECT_EQ(http->lastSent().method, "DELETE");
    // The removal is the device's own to ask for; after it the credential opens nothing.
    EXPECT_EQ(http->lastSent().headers.back(), (std::pair<std::string, std::string>{"Authorization", "Bearer " + std::string(64, 'c')}));
    EXPECT_FALSE(store->get(kDeviceCredentialKey));
    http->respondJson(404, R"({"message":"Device not found"})");
    runPending();

    dev->registerDevice(nullptr);
    EXPECT_FALSE(bodyOf(http->lastSent()).contains("custom_data"));
    EXPECT_EQ(dev->id(), id);  // the identifier survives deregistration
}

}  // namespace
}  // namespace halvora
