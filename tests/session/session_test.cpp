// The session resource: URLs, validation, state callbacks, activation and end.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "facade/facade_access.h"
#include "halvora/agent_events.h"
#include "halvora/session.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

Json record(const std::string& state, const std::string& id = "s1") {
    return {{"type", "Session"}, {"id", id}, {"code", "123456"}, {"state", state}};
}

class SessionTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        session = FacadeAccess::makeSession();
        startLibrary();
        session->onUpdated([this](const auto&) { ++updated; })
            .onEnded([this](const auto&) { ++ended; })
            .onActivated([this](const auto&) { ++activated; });
    }
    std::shared_ptr<HLVSession> session;
    int updated = 0, ended = 0, activated = 0;
};

TEST_F(SessionTest, InvalidRecordsAreRejectedWithoutTouchingTheCurrentOne) {
    ASSERT_FALSE(session->updateResource(record("pending")));
    const std::vector<std::pair<Json, std::string>> cases = {
        {Json::array({1}), "Expecting session to be a dictionary"},
        {Json("Session"), "Expecting session to be a dictionary"},
        {Json{{"type", "Device"}, {"id", "x"}, {"state", "ended"}}, "Expected a Session resource"},
        {Json{{"type", "session"}, {"id", "x"}, {"state", "ended"}}, "Expected a Session resource"},
        {Json{{"type", 1}, {"id", "x"}, {"state", "ended"}}, "Expected a Session resource"},
        {Json{{"type", "Session"}, {"state", "ended"}}, "Expected session to have an ID"},
        {Json{{"type", "Session"}, {"id", "x"}}, "Expected session to have a state field"},
    };
    for (const auto& [value, message] : cases) {
        auto error = session->updateResource(value);
        ASSERT_TRUE(error) << value;
        EXPECT_EQ(*error, HLVError(message, 0)) << value;
    }
    EXPECT_EQ(session->updateResource(std::nullopt), HLVError("Expecting session to be a dictionary", 0));
    EXPECT_EQ(*session->resource(), record("pending"));
    EXPECT_EQ(updated, 1);
    EXPECT_EQ(ended, 0);
}

// Update callbacks see the ended state before the end callbacks run, and those run only once.
TEST_F(SessionTest, EndCallbacksFireOnceOnTheFirstEndedRecordAfterTheUpdate) {
    std::vector<std::string> order;
    session->onUpdated([&](const auto& s) { order.push_back("updated:" + *s->state()); });
    session->onEnded([&](const auto&) { order.push_back("ended"); });
    session->updateResource(record("pending"));
    session->updateResource(record("ended"));
    session->updateResource(record("ended"));
    EXPECT_EQ(order, (std::vector<std::string>{"updated:pending", "updated:ended", "ended", "updated:ended"}));
    EXPECT_EQ(ended, 1);

    auto fresh = FacadeAccess::makeSession();
    int freshEnded = 0;
    fresh->onEnded([&](const auto&) { ++freshEnded; });
    fresh->updateResource(record("ended"));  // already ended on arrival
    EXPECT_EQ(freshEnded, 1);
}

TEST_F(SessionTest, StatesAndAgent) {
    EXPECT_FALSE(session->isPending() || session->isActive() || session->isEnded() || session->hasAgent());
    Json withAgent = record("pending");
    withAgent["agent"] = nullptr;  // assigned, not yet known
    session->updateResource(withAgent);
    EXPECT_TRUE(session->isPending() && session->hasAgent());
    EXPECT_FALSE(session->agent());
    withAgent["agent"] = {{"id", "a7"}, {"name", "Dana"}};
    session->updateResource(withAgent);
    ASSERT_TRUE(session->agent());
    EXPECT_EQ(*session->agent()->name, "Dana");
}

TEST_F(SessionTest, ActivationSendsStateDeviceAndCustomDataInOrder) {
    Halvora::instance().setCustomData({{"plan", "pro"}});
    http->respondJson(200, "{}");  // the re-registration for the custom data
    runPending();
    session->updateResource(record("pending"));
    int completions = 0;
    session->activate([&](OptionalError error, std::shared_ptr<HLVSession> s) {
        ++completions;
        EXPECT_FALSE(error);
        EXPECT_EQ(s, session);
    });
    EXPECT_EQ(http->lastSent().url, "http://svc/api/1/sessions/s1");
    Json body = bodyOf(http->lastSent());
    EXPECT_EQ(body["device"]["platform"], "linux");
    body["device"] = nullptr;
    EXPECT_EQ(body.dump(), R"({"state":"active","device":null,"custom_data":{"plan":"pro"}})");

    http->respondJson(200, record("active").dump());
    runPending();
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(activated, 1);
    EXPECT_TRUE(session->isFrameLoopRunning());
}

TEST_F(SessionTest, ActivationAnsweredWithAnotherStateStartsNothing) {
    session->updateResource(record("pending"));
    OptionalError error = HLVError("not called", 0);
    session->activate([&](OptionalError e, std::shared_ptr<HLVSession>) { error = e; });
    http->respondJson(200, record("pending").dump());
    runPending();
    EXPECT_FALSE(error);
    EXPECT_EQ(activated, 0);
    EXPECT_FALSE(session->isFrameLoopRunning());
}

TEST_F(SessionTest, FailedActivationOrEndChangesNothingAndTheEndFiresFromTheAnswer) {
    session->updateResource(record("pending"));
    OptionalError seen;
    std::shared_ptr<HLVSession> given = session;
    session->activate([&](OptionalError error, std::shared_ptr<HLVSession> s) {
        seen = error;
        given = s;
    });
    http->respondJson(400, R"({"message":"Cannot activate"})");
    runPending();
    EXPECT_EQ(*seen, HLVError("Cannot activate", 400));
    EXPECT_FALSE(given);
    EXPECT_TRUE(session->isPending());
    EXPECT_EQ(activated, 0);

    session->end(nullptr);
    EXPECT_EQ(bodyOf(http->lastSent()), (Json{{"state", "ended"}}));
    http->fail();
    runPending();
    EXPECT_TRUE(session->isPending());
    EXPECT_EQ(ended, 0);

    session->end(nullptr);  // the end fires from the adopted answer, not from the call
    EXPECT_EQ(ended, 0);
    http->respondJson(200, record("ended").dump());
    runPending();
    EXPECT_EQ(ended, 1);
}

TEST_F(SessionTest, AfterCleanupNothingFires) {
    session->updateResource(record("pending"));
    session->cleanup();
    EXPECT_FALSE(session->resource());
    session->updateResource(record("ended"));
    session->agentEventReceived(*HLVURL::from(Json{{"type", "URL"}, {"url", "https://example.com"}}));
    EXPECT_EQ(updated, 1);
    EXPECT_EQ(ended, 0);
}

}  // namespace
}  // namespace halvora
