// The session's two realtime connections. Opening both with their tokens, probes, control pushes,
// a rebuild after token rotation and closing at the end run against the reference service in
// tests/cli/listen_e2e.mjs; here are the paths it cannot provoke.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "halvora/agent_events.h"
#include "facade/facade_access.h"
#include "session/session_sockets.h"
#include "halvora/halvora.h"
#include "halvora/session.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using testing::FakeRealtimeSocket;

Json record(const std::string& state, const std::string& control = "c1", const std::string& stream = "s1") {
    return Json{{"type", "Session"}, {"id", "S"},        {"code", "123456"},     {"state", state},
                {"control_url", "http://svc"}, {"control_token", control},
                {"stream_url", "http://svc"},  {"stream_token", stream}};
}

class SessionSocketsTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        session = FacadeAccess::makeSession();
        startLibrary();
        session->onAgentEvent([this](const HLVAgentEvent& event) { events.push_back(event); });
    }
    std::shared_ptr<FakeRealtimeSocket> control() const { return sockets->latestWithToken("c1"); }
    std::shared_ptr<FakeRealtimeSocket> stream() const { return sockets->latestWithToken("s1"); }

    std::shared_ptr<HLVSession> session;
    std::vector<HLVAgentEvent> events;
};

TEST_F(SessionSocketsTest, AnEndedSessionOrMissingUrlsOpenNothingUntilALaterUpdate) {
    FacadeAccess::makeSession()->updateResource(record("ended"));
    EXPECT_TRUE(sockets->made.empty());
    Json bad = record("pending");
    bad["control_url"] = "not a url";
    bad.erase("stream_url");
    session->updateResource(bad);
    EXPECT_TRUE(sockets->made.empty());
    session->updateResource(record("pending"));
    EXPECT_EQ(sockets->made.size(), 2u);
}

TEST_F(SessionSocketsTest, StreamEventsReachTheSessionAsRecords) {
    session->updateResource(record("active"));
    auto s = stream();
    s->fire("laser", {Json{{"type", "Laser"}, {"x", 0.5}, {"y", 0.25}}});
    s->fire("touch", {Json{{"type", "Touch"}, {"id", "p"}, {"state", "touchstart"}}, Json("ignored")});
    s->fire("laser", {Json{{"type", "Touch"}}});  // not a laser: dropped
    s->fire("drawing", {});
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(std::get<HLVLaser>(events[0]).position, (HLVPoint{0.5, 0.25}));
    EXPECT_TRUE(std::get<HLVTouchEvent>(events[1]).isStart());
}

TEST_F(SessionSocketsTest, AnErrorRefreshesBothTokensAndRebuildsOnlyTheFailedConnection) {
    session->updateResource(record("active"));
    auto oldControl = control();
    auto oldStream = stream();
    oldStream->fire("error", {Json{{"message", "Unauthorized"}}});
    EXPECT_EQ(countLog(R"(error {"message":"Unauthorized"})"), 1);
    http->respondJson(200, record("active", "c2", "s2").dump());
    runPending();
    EXPECT_EQ(oldStream->bearer(), "s2");
    EXPECT_EQ(oldControl->bearer(), "c2");
    EXPECT_EQ(sockets->made.size(), 2u);

    advance(std::chrono::milliseconds(1999));
    EXPECT_EQ(oldStream->disconnects, 0);
    advance(std::chrono::milliseconds(1));
    EXPECT_EQ(oldStream->disconnects, 1);
    ASSERT_EQ(sockets->made.size(), 3u);
    EXPECT_EQ(sockets->made.back()->bearer(), "s2");
    EXPECT_EQ(session->sockets()->stream(), sockets->made.back());
    EXPECT_EQ(oldControl->disconnects, 0);
}

// A service that keeps refusing must not be retried every 2 s forever, nor fill the log.
TEST_F(SessionSocketsTest, ErrorsInARowBackOffLogOnceAndAConnectResetsThem) {
    session->updateResource(record("active"));
    auto first = stream();
    const auto requestsBefore = http->sent().size();
    first->fire("error", {Json("boom")});
    first->fire("error", {Json("boom")});  // the client's own retry, before the rebuild
    EXPECT_EQ(http->sent().size(), requestsBefore + 1);
    http->fail();
    runPending();
    advance(std::chrono::seconds(2));
    ASSERT_EQ(sockets->made.size(), 3u);
    for (int failures = 3; failures <= 8; ++failures) {
        const auto made = sockets->made.size();
        sockets->made.back()->fire("error", {Json("boom")});
        http->fail();
        runPending();
        const double nominal = 2.0 * std::pow(1.5, failures - 2);  // +/- half, at most 60 s
        const auto earliest = std::chrono::milliseconds(static_cast<long>(nominal * 500) - 1);
        advance(earliest);
        EXPECT_EQ(sockets->made.size(), made) << failures;
        advance(std::chrono::milliseconds(static_cast<long>(std::min(60.0, nominal * 1.5) * 1000) + 1) - earliest);
        EXPECT_EQ(sockets->made.size(), made + 1) << failures;
    }
    EXPECT_EQ(countLog("error boom"), 1);
    EXPECT_EQ(countLog("error fetching resource update Error Domain=curl Code=7 \"Couldn't connect to server\""), 1);

    sockets->made.back()->fire("connect");
    EXPECT_EQ(countLog("Halvora session connection restored"), 1);
    sockets->made.back()->fire("error", {Json("boom")});
    http->respondJson(200, record("active").dump());
    runPending();
    advance(std::chrono::seconds(2));  // the first wait again
    EXPECT_EQ(sockets->made.size(), 10u);
    EXPECT_EQ(countLog("error boom"), 2);
}

// The service restarted without the session, or without this device: its tokens are refused and
// the refresh answers 404 (no such session) or 401 (no such device).
class GoneSessionTest : public SessionSocketsTest, public ::testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Answers, GoneSessionTest, ::testing::Values(404, 401));

TEST_P(GoneSessionTest, ASessionTheServiceNoLongerKnowsEndsHereAndIsNotRetried) {
    int ended = 0;
    session->onEnded([&](const auto&) { ++ended; });
    session->updateResource(record("active"));
    stream()->fire("error", {Json{{"message", "Unauthorized"}}});
    http->respondJson(GetParam(), R"({"message":"Not yours or not there"})");
    runPending();
    EXPECT_EQ(ended, 1);
    EXPECT_TRUE(session->isEnded());
    advance(std::chrono::minutes(5));
    EXPECT_EQ(sockets->made.size(), 2u);
    EXPECT_EQ(http->sent().size(), 2u);  // the registration and the one refresh
}

TEST_F(SessionSocketsTest, ARebuildDueAfterTheEndKeepsTheConnectionClosed) {
    session->updateResource(record("active"));
    stream()->fire("error", {Json("boom")});
    http->respondJson(200, record("active").dump());
    runPending();
    session->updateResource(record("ended"));
    advance(std::chrono::seconds(2));
    EXPECT_EQ(sockets->made.size(), 2u);
}

}  // namespace
}  // namespace halvora
