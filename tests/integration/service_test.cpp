// The library against the real reference service, over real HTTP on loopback.
#include <fstream>

#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "device/device.h"
#include "platform/linux/curl_http_client.h"
#include "platform/linux/linux_device_info.h"
#include "halvora/platform.h"
#include "halvora/platform/run_loop.h"
#include "halvora/session.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;

std::string serviceUrl() {
    const char* file = std::getenv("HALVORA_TEST_SERVICE_URL_FILE");
    if (!file) return {};
    std::ifstream in(file);
    std::string url;
    std::getline(in, url);
    return url;
}

class ServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        url = serviceUrl();
        if (url.empty()) GTEST_SKIP() << "HALVORA_TEST_SERVICE_URL_FILE names no running service";
        auto store = std::make_shared<testing::MemoryStore>();
        auto app = std::make_shared<platform::StaticAppInfo>();
        app->id = "io.halvora.tests";
        app->version = "1.0";
        app->build = "1";
        platform::install({loop, nullptr, store, app,
                           std::make_shared<platform::LinuxDeviceInfo>(std::make_shared<testing::MemoryStore>()),
                           std::make_shared<platform::CurlHttpClient>(), nullptr, nullptr});
        halvora.setApi(url);
    }
    bool waitFor(const std::function<bool()>& done) { return loop->runUntil(done, 20s); }

    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    Halvora& halvora = Halvora::instance();
    std::string url;
};

TEST_F(ServiceTest, RegistrationIsAnsweredWithScheduleAndNotificationChannel) {
    halvora.setCustomData({{"tier", "gold"}});
    halvora.start();
    auto device = halvora.device();
    bool done = false;
    OptionalError error;
    device->registerDevice([&](OptionalError e, std::shared_ptr<HLVDevice>) {
        error = e;
        done = true;
    });
    ASSERT_TRUE(waitFor([&] { return done; }));
    ASSERT_FALSE(error) << error->description();
    EXPECT_TRUE(device->field("next_registration")->is_number_unsigned());
    EXPECT_EQ(device->field("notification_url"), url);
    EXPECT_TRUE(device->field("notification_token")->is_string());
    EXPECT_EQ((*device->field("custom_data"))["tier"], "gold");
    EXPECT_EQ((*device->field("device"))["sdk_version"], "1.5.4");

    bool deregistered = false;
    device->deregister([&](OptionalError e, std::shared_ptr<HLVRESTResource>) {
        error = e;
        deregistered = true;
    });
    ASSERT_TRUE(waitFor([&] { return deregistered; }));
    EXPECT_FALSE(error);
}

TEST_F(ServiceTest, SessionLifecycleCreateFetchByCodeActivateEnd) {
    halvora.start();
    std::shared_ptr<HLVSession> created;
    halvora.createSession([&](OptionalError e, std::shared_ptr<HLVSession> s) {
        ASSERT_FALSE(e) << e->description();
        created = s;
    });
    ASSERT_TRUE(waitFor([&] { return created != nullptr; }));
    ASSERT_TRUE(created->isPending());
    auto code = created->code();
    auto createdId = created->id();
    ASSERT_TRUE(code);
    EXPECT_EQ(code->size(), 6u);

    std::shared_ptr<HLVSession> fetched;
    halvora.getSession(*code, [&](OptionalError e, std::shared_ptr<HLVSession> s) {
        ASSERT_FALSE(e) << e->description();
        fetched = s;
    });
    ASSERT_TRUE(waitFor([&] { return fetched != nullptr; }));
    EXPECT_EQ(fetched->id(), createdId);
    EXPECT_EQ(halvora.currentSession(), fetched);
    EXPECT_FALSE(created->resource());  // replaced as current, so cleaned up

    int activated = 0, ended = 0;
    fetched->onActivated([&](const auto&) { ++activated; }).onEnded([&](const auto&) { ++ended; });
    bool activationDone = false;
    fetched->activate([&](OptionalError e, std::shared_ptr<HLVSession>) {
        EXPECT_FALSE(e);
        activationDone = true;
    });
    ASSERT_TRUE(waitFor([&] { return activationDone; }));
    EXPECT_TRUE(fetched->isActive());
    EXPECT_EQ(activated, 1);

    // Ending twice: the service refuses the second, and the end fired once.
    fetched->end(nullptr);
    ASSERT_TRUE(waitFor([&] { return ended == 1; }));
    OptionalError second;
    bool secondDone = false;
    fetched->end([&](OptionalError e, std::shared_ptr<HLVSession>) {
        second = e;
        secondDone = true;
    });
    ASSERT_TRUE(waitFor([&] { return secondDone; }));
    ASSERT_TRUE(second);
    EXPECT_EQ(second->code(), 400);
    EXPECT_EQ(ended, 1);
}

TEST_F(ServiceTest, UnknownCodeIsNotFound) {
    halvora.start();
    OptionalError error;
    bool done = false;
    halvora.getSession("abc-not-there", [&](OptionalError e, std::shared_ptr<HLVSession> s) {
        error = e;
        EXPECT_FALSE(s);
        done = true;
    });
    ASSERT_TRUE(waitFor([&] { return done; }));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 404);
    EXPECT_EQ(error->localizedDescription(), "Session not found");
}

}  // namespace
}  // namespace halvora
