// Which session is current, and who hears of it. Creating, fetching by code and "Session not found"
// run against the reference service in tests/cli/doctor_test.sh; answers that are not sessions are
// rejected in session_test.cpp.
#include <gtest/gtest.h>

#include "halvora/agent_events.h"
#include "facade/facade_access.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "halvora/delegate.h"
#include "overlay/halvora_window.h"
#include "halvora/session.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

const char* kPending = R"({"type":"Session","id":"s1","code":"123456","state":"pending"})";

struct RecordingDelegate : HalvoraDelegate {
    std::vector<std::string> calls;
    void halvoraSessionDidUpdate(const std::shared_ptr<HLVSession>& s) override {
        calls.push_back("update:" + s->state().value_or("?"));
    }
    void halvoraSessionDidEnd(const std::shared_ptr<HLVSession>&) override {
        calls.push_back("end:overlay=" + std::to_string(Halvora::instance().overlay().isActive()));
    }
};

class CurrentSessionTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        halvora.setApi("http://svc");
        halvora.start();
        http->respondJson(200, R"({"id":"device","next_registration":600})");
        runPending();
    }
    Halvora::SessionCallback record() {
        return [this](OptionalError error, std::shared_ptr<HLVSession> session) {
            ++calls;
            lastError = error;
            lastSession = session;
        };
    }
    Halvora& halvora = Halvora::instance();
    int calls = 0;
    OptionalError lastError;
    std::shared_ptr<HLVSession> lastSession;
};

TEST_F(CurrentSessionTest, AFailedCreateLeavesTheCurrentSessionAndANewOneReplacesItWithoutEndingIt) {
    halvora.createSession(record());
    EXPECT_FALSE(http->lastSent().body);
    http->respondJson(201, R"({"type":"Session","id":"s1","code":"111111","state":"active"})");
    runPending();
    auto first = halvora.currentSession();
    ASSERT_TRUE(first);
    EXPECT_EQ(first, lastSession);

    halvora.createSession(record());
    http->respondJson(200, R"({"type":"Device","id":"x","state":"pending"})");
    runPending();
    EXPECT_EQ(*lastError, HLVError("Expected a Session resource", 0));
    EXPECT_EQ(halvora.currentSession(), first);

    const auto sentBefore = http->sent().size();
    halvora.getSession("222222", record());
    http->respondJson(200, R"({"type":"Session","id":"s2","code":"222222","state":"pending"})");
    runPending();
    EXPECT_EQ(http->sent().size(), sentBefore + 1);  // only the GET: nothing ended at the service
    EXPECT_NE(halvora.currentSession(), first);
    EXPECT_FALSE(first->resource());  // cleaned up
    EXPECT_EQ(calls, 3);
}

TEST_F(CurrentSessionTest, DelegateHearsUpdatesAndTheEndBeforeTheOverlayGoes) {
    auto delegate = std::make_shared<RecordingDelegate>();
    halvora.setDelegate(delegate);
    halvora.createSession(record());
    http->respondJson(201, kPending);
    runPending();
    auto session = halvora.currentSession();
    session->activate([](OptionalError, std::shared_ptr<HLVSession>) {});
    http->respondJson(200, R"({"type":"Session","id":"s1","code":"123456","state":"active"})");
    runPending();
    EXPECT_TRUE(halvora.overlay().isActive());

    session->updateResource(Json::parse(R"({"type":"Session","id":"s1","code":"123456","state":"ended"})"));
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"update:active", "update:ended", "end:overlay=1"}));
    EXPECT_TRUE(halvora.overlay().isActive());  // the overlay hides on the main queue
    runPending();
    EXPECT_FALSE(halvora.overlay().isActive());
    EXPECT_FALSE(halvora.currentSession());
}

TEST_F(CurrentSessionTest, SettingTheSameSessionAgainReinstallsTheCallbacksOnce) {
    auto delegate = std::make_shared<RecordingDelegate>();
    halvora.setDelegate(delegate);
    auto session = FacadeAccess::makeSession();
    int own = 0;
    session->onUpdated([&](const auto&) { ++own; });
    halvora.setCurrentSession(session);
    halvora.setCurrentSession(session);
    session->updateResource(Json::parse(kPending));
    EXPECT_EQ(own, 0);                   // cleanup dropped the earlier callbacks
    EXPECT_EQ(delegate->calls.size(), 1u);  // the facade's are installed once
}

TEST_F(CurrentSessionTest, JoiningFailsAtOnceOnlyWhileTheCurrentSessionIsActive) {
    halvora.createSession(record());
    http->respondJson(201, kPending);
    runPending();
    auto pending = halvora.currentSession();
    halvora.joinSession("222222", record());  // a pending current session is replaced
    http->respondJson(200, R"({"type":"Session","id":"s2","code":"222222","state":"pending"})");
    runPending();
    EXPECT_NE(halvora.currentSession(), pending);
    EXPECT_EQ(bodyOf(http->lastSent())["state"], "active");
    http->respondJson(200, R"({"type":"Session","id":"s2","code":"222222","state":"active"})");
    runPending();
    EXPECT_EQ(calls, 2);
    EXPECT_TRUE(lastSession->isActive());
    EXPECT_TRUE(halvora.overlay().isActive());

    auto sent = http->sent().size();
    halvora.joinSession("333333", record());
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(*lastError, HLVError("Already in a session", 400));
    EXPECT_EQ(http->sent().size(), sent);
}

// A push and a link for one session arrive together: one fetch, one activation, one session.
TEST_F(CurrentSessionTest, JoiningACodeAlreadyBeingJoinedWaitsForTheFirst) {
    const auto sent = http->sent().size();
    halvora.joinSession("222222", record());
    halvora.joinSession("222222", record());
    http->respondJson(200, R"({"type":"Session","id":"s2","code":"222222","state":"pending"})");
    runPending();
    http->respondJson(200, R"({"type":"Session","id":"s2","code":"222222","state":"active"})");
    runPending();
    EXPECT_EQ(http->sent().size(), sent + 2);  // the GET and the PUT
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(lastSession, halvora.currentSession());
    EXPECT_TRUE(lastSession->isActive());
}

struct RefusingDelegate : RecordingDelegate {
    std::shared_ptr<HLVSession> askedAbout;
    std::optional<bool> halvoraShouldAllowTouchEvent(const HLVTouchEvent&,
                                                     const std::shared_ptr<HLVSession>& session) override {
        askedAbout = session;
        return false;
    }
};

// Nothing the agent sends acts before the user let it in: on a pending session (the approval
// screen asking about it) a touch could press "approve" for the user.
TEST_F(CurrentSessionTest, AgentEventsActOnlyOnceActiveReachingTheOverlayFirstAndThenWhereTheyBelong) {
    auto delegate = std::make_shared<RefusingDelegate>();
    halvora.setDelegate(delegate);
    std::vector<std::string> seen;
    halvora.overlay().addAgentEventObserver([&](const HLVAgentEvent&) { seen.push_back("overlay"); });
    // Keys reach the focused view's extension; touches would reach the view under them.
    auto ui = std::make_shared<testing::FakeApplication>();
    platform::install({.application = ui});
    auto window = ui->showKeyWindow({255, 255, 255, 255});
    struct Recorder : HLVResponderExtension {
        std::vector<std::string>& seen;
        explicit Recorder(std::vector<std::string>& into) : seen(into) {}
        bool halvoraTouchesEnded(const HLVTouches&, const HLVTouchEvent&, const platform::ViewRef&) override {
            return seen.push_back("touch"), true;
        }
        bool halvoraKeyDown(const HLVKeyPress&, const platform::ViewRef&) override { return seen.push_back("key"), true; }
    };
    window->root->name = "Root";
    Halvora::experimental_registerResponderExtension("Root", std::make_shared<Recorder>(seen));
    ui->focused = window->root;
    halvora.createSession(record());
    http->respondJson(201, kPending);
    runPending();
    auto session = halvora.currentSession();
    const auto touchEnd = [] { return *HLVTouchEvent::from(Json{{"type", "Touch"}, {"state", "touchend"}}); };

    const HLVAgentEvent beforeApproval[] = {
        *HLVTouchEvent::from(Json{{"type", "Touch"}, {"state", "touchstart"}}), touchEnd(),
        *HLVKeyPress::from(Json{{"type", "KeyPress"}, {"key", "a"}}),
        *HLVURL::from(Json{{"type", "URL"}, {"url", "https://example.com/help"}}),
        *HLVLaser::from(Json{{"type", "Laser"}, {"x", 0.5}, {"y", 0.5}}),
        *HLVDrawing::from(Json{{"type", "Drawing"}, {"path", Json::array()}})};
    for (const auto& event : beforeApproval) session->agentEventReceived(event);
    EXPECT_TRUE(seen.empty());
    EXPECT_TRUE(browser->opened.empty());
    EXPECT_FALSE(delegate->askedAbout);

    session->updateResource(Json::parse(R"({"type":"Session","id":"s1","code":"123456","state":"active"})"));
    session->agentEventReceived(*HLVTouchEvent::from(Json{{"type", "Touch"}, {"state", "touchstart"}}));
    session->agentEventReceived(touchEnd());
    EXPECT_EQ(seen, (std::vector<std::string>{"overlay", "overlay"}));  // drawn, not performed
    EXPECT_EQ(delegate->askedAbout, session);
    session->agentEventReceived(*HLVKeyPress::from(Json{{"type", "KeyPress"}, {"key", "a"}}));
    EXPECT_EQ(seen, (std::vector<std::string>{"overlay", "overlay", "overlay", "key"}));  // unanswered: allowed

    session->agentEventReceived(*HLVURL::from(Json{{"type", "URL"}, {"url", "https://example.com/help"}}));
    session->agentEventReceived(*HLVURL::from(Json{{"type", "URL"}, {"url", "file:///etc/passwd"}}));
    EXPECT_EQ(browser->opened, (std::vector<std::string>{"https://example.com/help"}));
    EXPECT_EQ(seen.size(), 6u);
}

}  // namespace
}  // namespace halvora
