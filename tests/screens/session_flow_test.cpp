// The session flow and its child screens on an in-memory user interface with a manual clock:
// which screen each session state shows, adopting or loading a session instead of creating one,
// approval through the countdown to activation, declining and ending, errors laid over the flow,
// and the banner's management screen.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "facade/facade_access.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "overlay/halvora_window.h"
#include "screens/child_screens.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;
using testing::FakeLayout;

Json record(const std::string& state, bool agent = false) {
    Json session{{"type", "Session"},           {"id", "S"},           {"code", "123456"}, {"state", state},
                 {"control_url", "http://svc"}, {"control_token", "c1"}, {"stream_url", "http://svc"},
                 {"stream_token", "s1"}};
    if (agent) session["agent"] = {{"id", "a7"}, {"name", "Dana"}};
    return session;
}

class SessionFlowTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        platform::install({.application = ui});
        startLibrary();
    }

    // Opens a flow as the banner would (presented) or as a push onto a navigation stack.
    std::shared_ptr<HLVViewController> open(bool presented) {
        auto flow = HLVViewController::make(FacadeAccess::sessionSource());
        flow->view();
        frame().presented = presented;
        flow->viewWillAppear(true);
        runPending();
        return flow;
    }
    void settle() {
        for (int i = 0; i < 3; ++i) runPending();
    }
    void answer(const Json& body) {
        http->respondJson(200, body.dump());
        settle();
    }
    FakeLayout& frame() const { return ui->layout("HLVHalvoraView"); }
    // The child screen the container shows, by layout name; "(none)" when it shows none or several.
    std::string shown() const {
        const auto children = frame()["subview"].subviews();
        if (children.size() != 1) return "(none)";
        for (const auto& layout : ui->layouts) {
            if (layout->root == children[0]) return layout->name;
        }
        return "(unknown)";
    }
    bool errorShown() const {
        const auto children = frame().root->subviews();
        return !children.empty() && children.back() == frame().outlets.at("close") &&
               std::find(children.begin(), children.end(), ui->layout("HLVErrorDisplayView").root) != children.end();
    }
    std::string code() const { return ui->layout("HLVCodeDisplayView")["codeLabel"].label; }

    std::shared_ptr<testing::FakeApplication> ui = std::make_shared<testing::FakeApplication>();
};

TEST_F(SessionFlowTest, TheScreenFollowsTheSessionFromCreationToTheEnd) {
    auto flow = open(true);
    ASSERT_EQ(http->pendingCount(), 1u);
    EXPECT_EQ(http->lastSent().method, "POST");
    EXPECT_EQ(shown(), "HLVCodeDisplayView");  // no session yet: random digits
    EXPECT_TRUE(ui->layout("HLVCodeDisplayView")["working"].hidden);

    answer(record("pending"));
    ASSERT_EQ(flow->session(), Halvora::instance().currentSession());
    const struct {
        Json pushed;
        const char* screen;
    } steps[] = {
        {record("pending", true), "HLVSessionApprovalView"},  // an agent joined: no user action needed
        {record("active"), "HLVManageSessionView"},
        {record("ended"), "HLVCodeDisplayView"},
    };
    for (const auto& step : steps) {
        flow->session()->updateResource(step.pushed);
        settle();
        EXPECT_EQ(shown(), std::string(step.screen)) << step.pushed;
    }
    // The user was asked about the agent by name.
    EXPECT_EQ(ui->layout("HLVSessionApprovalView")["agentLabel"].text(), "Support agent Dana has joined");
    EXPECT_FALSE(errorShown());
}

TEST_F(SessionFlowTest, AnActiveSessionIsAdoptedAndALoadedOneShownWithoutCreatingAnother) {
    auto active = FacadeAccess::makeSession();
    active->updateResource(record("active"));
    Halvora::instance().setCurrentSession(active);
    const auto sent = http->sent().size();
    auto adopted = open(true);
    settle();
    EXPECT_EQ(adopted->session(), active);
    EXPECT_EQ(http->sent().size(), sent);
    EXPECT_EQ(shown(), "HLVManageSessionView");
    active->updateResource(record("ended"));
    settle();
    EXPECT_EQ(shown(), "HLVCodeDisplayView");  // the flow listens to the adopted session

    auto loaded = HLVViewController::make(FacadeAccess::sessionSource());
    loaded->loadSession("8f1c");  // before the view loads
    loaded->view();
    ASSERT_EQ(http->sent().size(), sent + 1);
    EXPECT_EQ(http->lastSent().method, "GET");
    EXPECT_EQ(http->lastSent().url, "http://svc/api/1/sessions/8f1c");
    answer(record("pending", true));
    EXPECT_EQ(shown(), "HLVSessionApprovalView");
}

TEST_F(SessionFlowTest, TheCodeAnimatesUntilTheRealCodeReplacesItAFifthOfASecondLater) {
    auto flow = open(true);
    auto& display = flow->codeDisplay();
    std::uint32_t next = 0;
    display.random = [&] { return next++ * 7 + 4'294'967'290u; };  // large values, reduced modulo 10
    std::set<std::string> seen;
    for (int i = 0; i < 5; ++i) {
        advance(80ms);
        seen.insert(code());
    }
    EXPECT_EQ(seen.size(), 5u);
    EXPECT_LT(ui->layout("HLVCodeDisplayView")["codeLabel"].alpha, 0.5) << "running digits read as a code";
    for (const auto& shownCode : seen) EXPECT_TRUE(std::regex_match(shownCode, std::regex("[0-9]{3}-[0-9]{3}"))) << shownCode;

    display.setCode(std::nullopt);  // nothing known yet: the digits go on
    advance(80ms);
    EXPECT_EQ(seen.count(code()), 0u);

    answer(record("pending"));  // render sets the code
    advance(199ms);
    EXPECT_NE(code(), "123-456");
    EXPECT_TRUE(ui->layout("HLVCodeDisplayView")["working"].hidden);
    advance(1ms);
    EXPECT_EQ(code(), "123-456");
    EXPECT_FALSE(ui->layout("HLVCodeDisplayView")["working"].hidden);
    EXPECT_EQ(ui->layout("HLVCodeDisplayView")["codeLabel"].alpha, 1.0);
    advance(1s);
    EXPECT_EQ(code(), "123-456");  // the animation stopped for good
}

TEST_F(SessionFlowTest, ApprovalCountsDownThenActivatesAndPopsEvenAfterTheScreenIsClosed) {
    auto flow = open(false);
    answer(record("pending", true));
    ui->layout("HLVSessionApprovalView")["approve"].tap();
    settle();
    EXPECT_EQ(shown(), "HLVCountdownView");
    auto& label = ui->layout("HLVCountdownView")["coutdown"];
    EXPECT_EQ(label.label, "3");
    const auto sent = http->sent().size();
    advance(1s);
    EXPECT_EQ(label.label, "2");
    advance(1s);
    EXPECT_EQ(label.label, "1");
    flow.reset();  // the screen goes; the user's approval stands
    EXPECT_EQ(http->sent().size(), sent);
    advance(1s);
    ASSERT_EQ(http->sent().size(), sent + 1);
    EXPECT_EQ(bodyOf(http->lastSent())["state"], "active");
    answer(record("active"));
    EXPECT_TRUE(Halvora::instance().currentSession()->isActive());
}

TEST_F(SessionFlowTest, ActivationPopsToTheRootAndAFailedOneShowsTheError) {
    for (const bool fails : {false, true}) {
        SCOPED_TRACE(fails ? "activation fails" : "activation succeeds");
        Halvora::instance().setCurrentSession(nullptr);  // else the next flow adopts the active one
        auto flow = open(false);
        answer(record("pending", true));
        flow->accceptSession();
        advance(3s);
        if (fails) {
            http->respondJson(500, R"({"message":"Service unavailable"})");
            settle();
        } else {
            answer(record("active"));
        }
        EXPECT_EQ(frame().popsToRoot, fails ? 0 : 1);
        EXPECT_EQ(errorShown(), fails);
        if (fails) {  // pushed, the error still has its way out
            ASSERT_FALSE(frame()["close"].hidden);
            frame()["close"].tap();
            EXPECT_EQ(frame().pops, 1);
        }
        const auto lines = logLines();
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                [](const std::string& line) {
                                    return line.starts_with("Halvora Error: ") &&
                                           line.find("Service unavailable") != std::string::npos;
                                }),
                  fails ? 1 : 0);
    }
}

// Declining ends like the end button: the screen leaves first, sharing stops here at once
// whatever the service answers, and when the service could not be told a screen says so.
TEST_F(SessionFlowTest, EndingLeavesAndStopsSharingAtOnceAndSaysWhenTheServiceWasNotTold) {
    const struct {
        const char* button;
        bool presented;
        bool endFails;
    } cases[] = {
        {"decline", true, false},
        {"decline", false, true},
        {"end", true, true},
        {"end", false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.button) + (c.presented ? " presented" : " pushed") + (c.endFails ? ", end fails" : ""));
        Halvora::instance().setCurrentSession(nullptr);
        auto flow = open(c.presented);
        EXPECT_EQ(frame()["close"].hidden, !c.presented);
        answer(record(std::string(c.button) == "end" ? "active" : "pending", true));
        const char* screen = std::string(c.button) == "end" ? "HLVManageSessionView" : "HLVSessionApprovalView";
        const auto presented = ui->presentedOwners.size();
        ui->layout(screen)[c.button].tap();
        // The navigation step and the end here come before the request's answer.
        EXPECT_EQ(frame().dismissals, c.presented ? 1 : 0);
        EXPECT_EQ(frame().pops, c.presented ? 0 : 1);
        EXPECT_TRUE(flow->session()->isEnded());
        EXPECT_EQ(Halvora::instance().currentSession(), nullptr);
        EXPECT_EQ(bodyOf(http->lastSent())["state"], "ended");
        if (c.endFails) {
            http->fail();
            settle();
        } else {
            answer(record("ended"));
        }
        ASSERT_EQ(ui->presentedOwners.size(), presented + (c.endFails ? 1 : 0));
        EXPECT_EQ(errorShown(), c.endFails);
        if (c.endFails) {
            EXPECT_EQ(ui->layout("HLVErrorDisplayView")["message"].text(), HLVViewController::kEndNotToldMessage);
            EXPECT_FALSE(frame()["close"].hidden);
        }
    }
    EXPECT_EQ(countLog(R"(Halvora Error: Error Domain=curl Code=7 "Couldn't connect to server")"), 2);
}

TEST_F(SessionFlowTest, TheBannerOpensOneManagementScreenAtATime) {
    const auto sessionsAskedFor = [&] {
        const auto sent = http->sent();
        return std::count_if(sent.begin(), sent.end(), [](const auto& request) {
            return request.method == "POST" && request.url.ends_with("/api/1/sessions");
        });
    };
    ui->refusesPresentation = true;  // nowhere to show it: no session is made for nobody to see
    Halvora::instance().openSessionManagement();
    settle();
    EXPECT_EQ(sessionsAskedFor(), 0);
    ui->refusesPresentation = false;

    Halvora::instance().overlay().onStatusTap();
    ASSERT_EQ(ui->presentedOwners.size(), 1u);
    EXPECT_EQ(sessionsAskedFor(), 1);
    EXPECT_FALSE(frame()["close"].hidden);
    Halvora::instance().openSessionManagement();
    EXPECT_EQ(ui->presentedOwners.size(), 1u);  // still open: no second screen

    ui->presentedOwners.clear();  // closed, and destroyed with its popup
    Halvora::instance().openSessionManagement();
    EXPECT_EQ(ui->presentedOwners.size(), 1u);

    frame()["poweredBy"].tap();
    EXPECT_EQ(browser->opened, std::vector<std::string>{Halvora::kPoweredByUrl});
}

}  // namespace
}  // namespace halvora
