// Streaming frames on the manual clock with an in-memory user interface: numbering while
// disconnected, the background pace, the loop's end, and the screen announcements. Still screens,
// changes, "sync" and the window choice are decoded from real Qt Quick windows in
// tests/qt/session_loop_test.cpp.
#include <gtest/gtest.h>

#include "capture/screen_capture.h"
#include "facade/facade_access.h"
#include "halvora/halvora.h"
#include "halvora/delegate.h"
#include "halvora/platform.h"
#include "halvora/session.h"
#include "tests/support/fake_ui.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

using namespace std::chrono_literals;
using testing::FakeApplication;
using testing::FakeView;
using testing::FakeWindow;
using testing::Rgba;

constexpr Rgba kWhite{255, 255, 255, 255};
constexpr Rgba kBlue{20, 60, 200, 255};

Json record(const std::string& state) {
    return Json{{"type", "Session"},         {"id", "S"},          {"code", "123456"}, {"state", state},
                {"control_url", "http://svc"}, {"control_token", "c1"}, {"stream_url", "http://svc"},
                {"stream_token", "s1"}};
}

class SessionFramesTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        session = FacadeAccess::makeSession();
        platform::install({.application = ui});
        startLibrary();
        window = ui->showKeyWindow(kWhite);
        session->updateResource(record("active"));
        stream()->connected = true;
    }

    std::shared_ptr<testing::FakeRealtimeSocket> stream() const { return sockets->latestWithToken("s1"); }
    // Lets the main queue and the sending queue settle at the current time.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            runPending();
            platform::backgroundQueue().drain();
        }
        runPending();
    }
    std::vector<Json> sent(const std::string& event) const {
        std::vector<Json> records;
        for (const auto& [name, items] : stream()->emitted) {
            if (name == event) records.push_back(items.at(0));
        }
        return records;
    }

    std::shared_ptr<FakeApplication> ui = std::make_shared<FakeApplication>();
    std::shared_ptr<FakeWindow> window;
    std::shared_ptr<HLVSession> session;
};

TEST_F(SessionFramesTest, ADisconnectedStreamSpendsTheNumberAndKeepsThePictureAsSent) {
    stream()->connected = false;
    session->frameLoop();
    settle();
    EXPECT_TRUE(sent("frame").empty());
    EXPECT_EQ(session->lastFrameId(), "1");

    stream()->connected = true;
    advance(100ms);
    settle();
    EXPECT_TRUE(sent("frame").empty());  // unchanged since the dropped frame
    window->root->setFill(kBlue);
    advance(100ms);
    settle();
    ASSERT_EQ(sent("frame").size(), 1u);
    EXPECT_EQ(sent("frame")[0]["id"], 2);
}

TEST_F(SessionFramesTest, InTheBackgroundTheLoopPollsWithoutCapturing) {
    ui->appState = platform::ApplicationState::background;
    session->frameLoop();
    settle();
    advance(400ms);
    settle();
    EXPECT_EQ(window->draws, 0);
    ui->appState = platform::ApplicationState::active;
    advance(99ms);
    settle();
    EXPECT_EQ(window->draws, 0);  // the next check is 0.5 s after the last
    advance(1ms);
    settle();
    EXPECT_EQ(window->draws, 1);
}

TEST_F(SessionFramesTest, TheLoopStopsAfterTheSessionEndsAndDoesNotRunTwice) {
    session->frameLoop();
    session->frameLoop();  // a second activation
    settle();
    EXPECT_EQ(window->draws, 1);
    session->updateResource(record("ended"));
    advance(100ms);
    settle();
    advance(1s);
    settle();
    EXPECT_EQ(window->draws, 1);
    EXPECT_FALSE(session->isFrameLoopRunning());
}

TEST_F(SessionFramesTest, TheTopScreenIsAnnouncedWhileActiveWithANullTitleWhenItHasNone) {
    auto shown = std::make_shared<testing::FakeViewController>();
    auto other = std::make_shared<testing::FakeViewController>();
    ui->top = shown;
    session->viewWillAppear(other, true);
    session->viewWillAppear(shown, false);
    shown->screenTitle = "Pay";
    session->viewWillAppear(shown, false);
    auto screens = sent("screen");
    ASSERT_EQ(screens.size(), 2u);
    screens[0]["timestamp"] = nullptr;
    EXPECT_EQ(screens[0].dump(), R"({"type":"Screen","class":"CheckoutScreen","title":null,"timestamp":null})");
    EXPECT_EQ(screens[1]["title"], "Pay");

    session->updateResource(record("pending"));
    session->viewWillAppear(shown, false);
    EXPECT_EQ(sent("screen").size(), 2u);
}

}  // namespace
}  // namespace halvora
