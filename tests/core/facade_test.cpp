// The facade's lifecycle and configuration, and when it lets session requests and agent-started
// sessions go.
#include <gtest/gtest.h>

#include <thread>

#include "halvora/halvora.h"
#include "facade/facade_access.h"
#include "device/device.h"
#include "halvora/platform.h"
#include "halvora/session.h"
#include "protocol/wire_headers.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

class FacadeTest : public testing::LibraryTest {
protected:
    Halvora& halvora = Halvora::instance();
};

TEST_F(FacadeTest, StartAndApiChangesRegisterOnlyOnceAndWhenStartedAndChanged) {
    halvora.setApi("http://one");  // stopped: stored, nothing sent
    EXPECT_TRUE(http->sent().empty());
    EXPECT_EQ(countLog("Warning: Halvora is using non-production API http://one"), 1);

    halvora.start();
    halvora.start();  // registers once
    EXPECT_EQ(http->sent().size(), 1u);
    EXPECT_EQ(http->lastSent().url, "http://one/api/1/devices/" + halvora.deviceId());

    halvora.setApi("http://one");  // same value: no new registration, but the warning again
    EXPECT_EQ(http->sent().size(), 1u);
    EXPECT_EQ(countLog("Warning: Halvora is using non-production API http://one"), 2);

    halvora.setApi("http://two");
    ASSERT_EQ(http->sent().size(), 2u);
    EXPECT_EQ(http->lastSent().url.rfind("http://two/api/1/devices/", 0), 0u);

    halvora.setApi(Halvora::kDefaultApi);  // back to production: no warning for it
    for (const auto& line : logLines()) EXPECT_EQ(line.find(Halvora::kDefaultApi), std::string::npos) << line;
}

TEST_F(FacadeTest, StopWithoutSessionOnlyDeregistersAndLogsTheOutcome) {
    halvora.setApi("http://svc");
    halvora.start();
    http->respondJson(200, R"({"id":"d","next_registration":600})");
    runPending();
    halvora.stop();
    EXPECT_FALSE(halvora.isStarted());
    ASSERT_EQ(http->sent().size(), 2u);
    EXPECT_EQ(http->lastSent().method, "DELETE");
    http->respondJson(200, R"({"id":"d"})");
    runPending();
    EXPECT_EQ(countLog("Halvora Stopped"), 1);
    // Stopped means stopped: the loop's timer went with the deregistration.
    advance(std::chrono::hours(2));
    EXPECT_EQ(http->sent().size(), 2u);
}

Json sessionRecord(const char* state) {
    return {{"type", "Session"}, {"id", "s1"}, {"code", "123456"}, {"state", state}};
}

// An active session is ended before the deregistration, and here at once: the service may never
// answer. A pending one is left alone. Nothing comes back after stop(), not even from a
// registration that was in flight.
TEST_F(FacadeTest, StopEndsAnActiveSessionHereAtOnceAndNothingComesBack) {
    halvora.setApi("http://svc");
    halvora.start();
    auto pending = FacadeAccess::makeSession();
    pending->updateResource(sessionRecord("pending"));
    halvora.setCurrentSession(pending);
    halvora.stop();
    ASSERT_EQ(http->sent().size(), 2u);  // the registration, then the deregistration only
    EXPECT_EQ(http->lastSent().method, "DELETE");
    EXPECT_TRUE(pending->isPending());

    halvora.start();  // a registration in flight, answered after the stop below
    auto active = FacadeAccess::makeSession();
    int ended = 0;
    halvora.setCurrentSession(active);
    active->onEnded([&](const auto&) { ++ended; });
    active->updateResource(sessionRecord("active"));
    const auto before = http->sent().size();
    halvora.stop();
    auto sent = http->sent();
    ASSERT_EQ(sent.size(), before + 2);
    EXPECT_EQ(sent[before].method, "PUT");
    EXPECT_EQ(bodyOf(sent[before]), (Json{{"state", "ended"}}));
    EXPECT_EQ(sent[before + 1].method, "DELETE");
    EXPECT_EQ(ended, 1);
    EXPECT_FALSE(halvora.currentSession());
    EXPECT_FALSE(active->isFrameLoopRunning());

    http->respondJson(200, R"({"id":"d","next_registration":60,"notification_url":"http://svc",
                               "notification_token":"n"})");
    runPending();
    advance(std::chrono::hours(2));
    EXPECT_EQ(http->sent().size(), before + 2);
    EXPECT_TRUE(sockets->made.empty());
}

// An application's own request hears of a transport failure on the main queue, like of answers.
TEST_F(FacadeTest, RequestsCallBackOnTheMainQueueEvenWhenTheExchangeFails) {
    startLibrary();
    int calls = 0;
    Halvora::request("http://svc/api/1/other", {}, [&](OptionalError error, std::optional<Json>, auto) {
        EXPECT_EQ(error->domain(), "curl");
        ++calls;
    });
    std::thread([&] { http->fail(); }).join();  // as curl's network thread answers
    EXPECT_EQ(calls, 0);
    runPending();
    EXPECT_EQ(calls, 1);
}

// Custom data is an object; anything else used to be sent as {}.
TEST_F(FacadeTest, CustomDataThatIsNotAnObjectIsRefusedAndChangesNothing) {
    halvora.setApi("http://svc");
    EXPECT_FALSE(halvora.setCustomData({{"plan", "pro"}}));
    for (const Json& bad : {Json::array({1}), Json("pro"), Json(), Json(3)}) {
        EXPECT_EQ(halvora.setCustomData(bad), HLVError("Custom data must be a JSON object", 400)) << bad;
    }
    EXPECT_EQ(halvora.customData(), (Json{{"plan", "pro"}}));
}

TEST_F(FacadeTest, AutostartAndAskingFollowTheInformationKeysUntilSet) {
    EXPECT_TRUE(Halvora::autostarts());
    EXPECT_FALSE(halvora.askBeforeAgentSessions());
    const std::pair<platform::InfoValue, bool> cases[] = {
        {false, false}, {true, true}, {std::string("NO"), false}, {std::string("YES"), true}};
    for (const auto& [value, expected] : cases) {
        app->info["HLVAutostart"] = value;
        app->info["HLVAskBeforeAgentSessions"] = value;
        EXPECT_EQ(Halvora::autostarts(), expected) << value.index();
        EXPECT_EQ(halvora.askBeforeAgentSessions(), expected) << value.index();
    }
    halvora.setAskBeforeAgentSessions(false);
    EXPECT_FALSE(halvora.askBeforeAgentSessions());
}

// On a first launch the session requests wait for the registration whose answer brings the
// credential; a failed one lets them go without it. With a credential stored, or once a
// registration was answered since the start, nothing waits.
TEST_F(FacadeTest, WithoutACredentialSessionRequestsWaitForARegistrationAnsweredSinceTheStart) {
    halvora.setApi("http://svc");
    int answered = 0;
    auto count = [&](OptionalError, const std::shared_ptr<HLVSession>&) { ++answered; };
    auto answerAll = [&] {
        while (http->pendingCount() > 0) http->respondJson(404, R"({"message":"Not found"})");
        runPending();
    };

    halvora.start();
    halvora.createSession(count);
    EXPECT_EQ(http->sent().size(), 1u);  // the registration alone
    http->respondJson(200, R"({"id":"d","next_registration":600,"credential":"k3y"})");
    runPending();
    EXPECT_EQ(http->lastSent().method, "POST");
    EXPECT_EQ(http->lastSent().headers.back(), (std::pair<std::string, std::string>{"Authorization", "Bearer k3y"}));
    answerAll();

    halvora.stop();
    EXPECT_FALSE(store->get(kDeviceCredentialKey));  // a removed device's credential opens nothing
    store->set(kDeviceCredentialKey, "k3y");
    halvora.start();  // with a credential stored, nothing waits for the registration in flight
    halvora.getSession("123456", count);
    EXPECT_EQ(http->lastSent().method, "GET");
    answerAll();

    store->remove(kDeviceCredentialKey);
    halvora.stop();
    halvora.start();
    halvora.joinSession("654321", count);
    EXPECT_EQ(http->lastSent().method, "PUT");
    answerAll();  // the registration fails: the join goes anyway, and from now on nothing waits
    EXPECT_EQ(http->lastSent().url, "http://svc/api/1/sessions/654321");
    halvora.createSession(count);
    EXPECT_EQ(http->lastSent().method, "POST");
    answerAll();
    EXPECT_EQ(answered, 4);
}

// With the option on, a session the agent started waits for the user's approval on the session
// screen, and is never joined without it, even where no screen can be shown.
TEST_F(FacadeTest, AskingBeforeAgentSessionsPresentsTheApprovalAndNeverJoinsWithoutIt) {
    halvora.setAskBeforeAgentSessions(true);
    startLibrary();
    Json pending{{"type", "Session"}, {"id", "s1"},   {"code", "123456"},
                 {"state", "pending"}, {"agent", {{"id", "a7"}, {"name", "Dana"}}}};
    auto settle = [&] {
        for (int i = 0; i < 3; ++i) runPending();
    };

    Halvora::onPushNotification(Json{{"halvora-notification", true}, {"halvora-code", "123456"}});
    EXPECT_EQ(http->lastSent().url, "http://svc/api/1/sessions/123456");
    http->respondJson(200, pending.dump());
    settle();
    EXPECT_EQ(countLog("Halvora cannot ask the user about session 123456; not joining"), 1);
    ASSERT_TRUE(halvora.currentSession());
    EXPECT_TRUE(halvora.currentSession()->isPending());
    EXPECT_EQ(http->pendingCount(), 0u);

    auto ui = std::make_shared<testing::FakeApplication>();
    platform::install({.application = ui});
    Halvora::joinFromOutside("654321");
    Halvora::joinFromOutside("654321");  // a push and a socket message for one session: one fetch
    ASSERT_EQ(http->pendingCount(), 1u);
    pending["id"] = "s2";
    pending["code"] = "654321";
    http->respondJson(200, pending.dump());
    settle();
    ASSERT_EQ(ui->presentedOwners.size(), 1u);
    Halvora::joinFromOutside("654321");  // asking already
    EXPECT_EQ(http->pendingCount(), 0u);
    auto& approval = ui->layout("HLVSessionApprovalView");
    EXPECT_EQ(ui->layout("HLVHalvoraView")["subview"].subviews(), std::vector<platform::ViewRef>{approval.root});

    approval["approve"].tap();
    advance(std::chrono::seconds(3));
    ASSERT_EQ(http->pendingCount(), 1u);
    EXPECT_EQ(bodyOf(http->lastSent())["state"], "active");
}

#if HALVORA_THREAD_CHECKS
// A host that calls the library from another thread must hear of it at once in development, not
// through a rare race in the field.
TEST_F(FacadeTest, EntryPointsAndCallbacksAbortOffTheMainThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto offMain = [](std::function<void()> call) { std::thread(std::move(call)).join(); };
    EXPECT_DEATH(offMain([] { Halvora::instance().start(); }), "start must be called on the main thread");
    EXPECT_DEATH(offMain([] { Halvora::instance().joinSession("123456", [](OptionalError, std::shared_ptr<HLVSession>) {}); }),
                 "joinSession must be called on the main thread");
    EXPECT_DEATH(offMain([] { HalvoraAppEvents::didOpenUrl("https://link.halvora.io/session/123456"); }),
                 "onInterceptedURL must be called on the main thread");
    // A session's callbacks reach the delegate only on the main thread.
    auto session = FacadeAccess::makeSession();
    Halvora::instance().setCurrentSession(session);
    EXPECT_DEATH(offMain([&] { session->updateResource(Json::parse(R"({"type":"Session","id":"S","state":"pending"})")); }),
                 "must be called on the main thread");
    // On the main thread the same calls go through.
    Halvora::instance().start();
    EXPECT_TRUE(Halvora::instance().isStarted());
}
#endif

}  // namespace
}  // namespace halvora
