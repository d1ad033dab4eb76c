// Integrations and forwarded callbacks: the registry set up on every start, the toolkit's links
// taken over once, pushes that are not Halvora's handed to integrations, and Intercom's hooks.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "halvora/integration.h"
#include "halvora/platform.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

class Recorder final : public HLVIntegration {
public:
    bool isAvailable() const override { return true; }
    std::string name() const override { return "Recorder"; }
    void configure() override { ++configured; }
    void onPushNotification(const Json& payload) override { pushes.push_back(payload); }
    int configured = 0;
    std::vector<Json> pushes;
};

class IntegrationsTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        platform::install({.application = ui});
    }
    std::shared_ptr<testing::FakeApplication> ui = std::make_shared<testing::FakeApplication>();
};

TEST_F(IntegrationsTest, EveryStartConfiguresEachIntegrationOnceWhileLinksAreTakenOverOnce) {
    auto recorder = std::make_shared<Recorder>();
    Halvora::addIntegration(recorder);
    Halvora::addIntegration(recorder);  // a set: registered once
    startLibrary();
    Halvora::instance().setApi("http://other");  // a new base while started sets up again
    Halvora::instance().stop();
    Halvora::instance().start();
    // Without a credential, joins wait for a registration answered since the start.
    while (http->pendingCount() > 0) http->respondJson(200, R"({"id":"d"})");
    runPending();
    EXPECT_EQ(recorder->configured, 3);
    EXPECT_EQ(countLog("Initialised Halvora integration for Recorder"), 3);
    EXPECT_EQ(ui->linkInterceptions, 1);

    // A link the toolkit delivered joins its session.
    ASSERT_TRUE(ui->onLink);
    ui->onLink("halvora://link.halvora.io/session/654321");
    EXPECT_EQ(http->lastSent().url, "http://other/api/1/sessions/654321");

    // Pushes: Halvora's join, others reach the integrations only.
    const auto sent = http->sent().size();
    const Json theirs{{"intercom_push_type", "notification"}};
    Halvora::onInterceptedNotification(theirs);
    HalvoraAppEvents::didReceiveRemoteNotification(Json{{"halvora-notification", true}, {"halvora-code", "111222"}});
    EXPECT_EQ(recorder->pushes, std::vector<Json>{theirs});
    ASSERT_EQ(http->sent().size(), sent + 1);
    EXPECT_EQ(http->lastSent().url, "http://other/api/1/sessions/111222");
}

TEST_F(IntegrationsTest, IntercomGetsTheInstallationIdentifierAndReportsMissingOperations) {
    EXPECT_EQ(HLVIntercom::install({}), nullptr);  // no Intercom in the application
    EXPECT_EQ(HLVIntercom::install({.setCustomAttributes = [](const Json&) {}, .updateUser = nullptr}), nullptr);  // one alone cannot
    EXPECT_EQ(HLVIntercom::install({.setCustomAttributes = nullptr, .updateUser = [] {}}), nullptr);

    std::vector<Json> attributes;
    int updates = 0;
    auto both = HLVIntercom::install({.setCustomAttributes = [&](const Json& a) { attributes.push_back(a); },
                                      .updateUser = [&] { ++updates; }});
    ASSERT_NE(both, nullptr);
    startLibrary();
    Halvora::instance().stop();
    Halvora::instance().start();
    const Json expected{{"HalvoraID", *device->installation}};
    EXPECT_EQ(attributes, (std::vector<Json>{expected, expected}));  // every start, the same value
    EXPECT_EQ(updates, 2);

    HLVIntercom({.setCustomAttributes = nullptr, .updateUser = [&] { ++updates; }}).configure();
    HLVIntercom({.setCustomAttributes = [&](const Json& a) { attributes.push_back(a); }, .updateUser = nullptr})
        .configure();
    EXPECT_EQ(countLog("Warning: ICMUserAttributes should respond to setCustomAttributes:"), 1);
    EXPECT_EQ(countLog("Warning: Intercom should respond to updateUser:"), 1);
    EXPECT_EQ(updates, 3);
    EXPECT_EQ(attributes.size(), 3u);

    device->installation.reset();  // nothing to give: no null erases what Intercom has
    both->configure();
    EXPECT_EQ(attributes.size(), 3u);
    EXPECT_EQ(updates, 3);
}

}  // namespace
}  // namespace halvora
