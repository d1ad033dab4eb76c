// The facade's lifecycle and configuration.
#include <gtest/gtest.h>

#include <thread>

#include "halvora/halvora.h"
#include "facade/facade_access.h"
#include "device/device.h"
#include "halvora/session.h"
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

TEST_F(FacadeTest, AutostartFollowsTheInformationKey) {
    EXPECT_TRUE(Halvora::autostarts());
    const std::pair<platform::InfoValue, bool> cases[] = {
        {false, false}, {true, true}, {std::string("NO"), false}, {std::string("YES"), true}};
    for (const auto& [value, expected] : cases) {
        app->info["HLVAutostart"] = value;
        EXPECT_EQ(Halvora::autostarts(), expected) << value.index();
    }
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
