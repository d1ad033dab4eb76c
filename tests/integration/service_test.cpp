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
        platform::install({.mainQueue = loop,
                           .store = store,
                           .appInfo = app,
                           .deviceInfo = std::make_shared<platform::LinuxDeviceInfo>(std::make_shared<testing::MemoryStore>()),
                           .http = std::make_shared<platform::CurlHttpClient>()});
        halvora.setApi(url);
    }
    bool waitFor(const std::function<bool()>& done) { return loop->runUntil(done, 20s); }
    // Runs the loop until the callback `call` is given has run once; its error and resource.
    template <typename Resource = HLVSession>
    std::pair<OptionalError, std::shared_ptr<Resource>> await(
        const std::type_identity_t<std::function<void(std::function<void(OptionalError, std::shared_ptr<Resource>)>)>>& call) {
        std::optional<std::pair<OptionalError, std::shared_ptr<Resource>>> outcome;
        call([&](OptionalError e, std::shared_ptr<Resource> r) { outcome.emplace(e, r); });
        EXPECT_TRUE(waitFor([&] { return outcome.has_value(); }));
        return outcome.value_or(std::pair<OptionalError, std::shared_ptr<Resource>>{});
    }

    std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
    Halvora& halvora = Halvora::instance();
    std::string url;
};

TEST_F(ServiceTest, RegistrationIsAnsweredWithScheduleAndNotificationChannel) {
    halvora.setCustomData({{"tier", "gold"}});
    halvora.start();
    auto device = halvora.device();
    const OptionalError error = await<HLVDevice>([&](auto done) { device->registerDevice(done); }).first;
    ASSERT_FALSE(error) << error->description();
    EXPECT_TRUE(device->field("next_registration")->is_number_unsigned());
    EXPECT_EQ(device->field("notification_url"), url);
    EXPECT_TRUE(device->field("notification_token")->is_string());
    EXPECT_EQ((*device->field("custom_data"))["tier"], "gold");
    EXPECT_EQ((*device->field("device"))["sdk_version"], "1.5.4");
    EXPECT_FALSE(await<HLVRESTResource>([&](auto done) { device->deregister(done); }).first);
}

TEST_F(ServiceTest, SessionLifecycleCreateFetchByCodeActivateEnd) {
    halvora.start();
    auto [createError, created] = await([&](auto done) { halvora.createSession(done); });
    ASSERT_TRUE(created) << createError->description();
    ASSERT_TRUE(created->isPending());
    const auto code = created->code();
    const auto createdId = created->id();
    ASSERT_TRUE(code);
    EXPECT_EQ(code->size(), 6u);

    auto [fetchError, fetched] = await([&](auto done) { halvora.getSession(*code, done); });
    ASSERT_TRUE(fetched) << fetchError->description();
    EXPECT_EQ(fetched->id(), createdId);
    EXPECT_EQ(halvora.currentSession(), fetched);
    EXPECT_FALSE(created->resource());  // replaced as current, so cleaned up

    int activated = 0, ended = 0;
    fetched->onActivated([&](const auto&) { ++activated; }).onEnded([&](const auto&) { ++ended; });
    EXPECT_FALSE(await([&](auto done) { fetched->activate(done); }).first);
    EXPECT_TRUE(fetched->isActive());
    EXPECT_EQ(activated, 1);

    // Ending twice: the service refuses the second, and the end fired once.
    fetched->end(nullptr);
    ASSERT_TRUE(waitFor([&] { return ended == 1; }));
    const OptionalError second = await([&](auto done) { fetched->end(done); }).first;
    ASSERT_TRUE(second);
    EXPECT_EQ(second->code(), 400);
    EXPECT_EQ(ended, 1);
}

TEST_F(ServiceTest, UnknownCodeIsNotFound) {
    halvora.start();
    auto [error, session] = await([&](auto done) { halvora.getSession("abc-not-there", done); });
    EXPECT_FALSE(session);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 404);
    EXPECT_EQ(error->localizedDescription(), "Session not found");
}

}  // namespace
}  // namespace halvora
