// Streaming frames on the manual clock with an in-memory user interface: numbering while
// disconnected, the background pace, the loop's end, and the screen announcements. Still screens,
// changes, "sync" and the window choice are decoded from real Qt Quick windows in
// tests/qt/session_loop_test.cpp.
#include <gtest/gtest.h>

#include "capture/frame_change_detector.h"
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

// After the first pass, passes follow renders, at most one per 0.1 s, and none while nothing
// renders; an agent's "sync" asks for one of its own.
TEST_F(SessionFramesTest, OnAToolkitThatTellsWhenItRendersPassesFollowRendersOnly) {
    ui->tellsRenders = true;
    session->frameLoop();
    settle();
    ASSERT_EQ(window->draws, 1);
    advance(5s);
    settle();
    EXPECT_EQ(window->draws, 1) << "passes while nothing rendered";

    ui->render();
    settle();
    EXPECT_EQ(window->draws, 2) << "a render after a quiet while waits for nothing";
    ui->render();  // two renders during the pause after that pass make one pass at its end
    ui->render();
    advance(99ms);
    settle();
    EXPECT_EQ(window->draws, 2);
    advance(1ms);
    settle();
    EXPECT_EQ(window->draws, 3);
    advance(1s);
    settle();
    EXPECT_EQ(window->draws, 3);

    stream()->fire("sync", {Json{{"regions", true}}});
    settle();
    EXPECT_EQ(window->draws, 4);
    EXPECT_EQ(sent("frame").size(), 2u) << "a sync resends the unchanged picture";
}

// Regions go only to an agent that announced it draws them, and whole frames come back at a
// "sync", another screen and 10 s after the last whole one.
TEST_F(SessionFramesTest, ChangedRegionsFollowTheWholeFrameTheAgentHasUntilTheNextWholeOneIsDue) {
    ui->tellsRenders = true;
    session->frameLoop();
    settle();
    auto marker = std::make_shared<FakeView>(platform::Rect{10, 10, 20, 20}, kBlue);
    int step = 0;
    auto change = [&] {
        marker->setFill(++step % 2 ? kWhite : kBlue);
        ui->render();
        advance(1s);
        settle();
        return sent("frame").back();
    };
    window->root->addSubview(marker);
    EXPECT_TRUE(change().contains("image")) << "no region for an agent that announced nothing";

    stream()->fire("sync", {Json{{"regions", true}}});
    advance(1s);
    settle();
    EXPECT_TRUE(sent("frame").back().contains("image"));
    const Json regions = change();
    ASSERT_TRUE(regions.contains("regions"));
    EXPECT_EQ(regions["base"], regions["id"].get<int>() - 1);
    EXPECT_EQ(regions["regions"].size(), 1u);
    EXPECT_EQ(regions["regions"][0]["x"], 0);  // the tile holding the marker
    EXPECT_EQ(regions["regions"][0]["width"], 32);

    auto screen = std::make_shared<testing::FakeViewController>();
    ui->top = screen;
    session->viewWillAppear(screen, false);
    EXPECT_TRUE(change().contains("image")) << "another screen is sent whole";
    EXPECT_TRUE(change().contains("regions"));
    advance(9s);  // with the second change's, 10 s after the whole frame
    EXPECT_TRUE(change().contains("image")) << "10 s after the last whole frame";
    stream()->fire("sync", {Json{{"regions", "yes"}}});
    advance(1s);
    settle();
    EXPECT_TRUE(change().contains("image")) << "only true announces regions";
}

// A page the agent sent that opened outside the shared window (the system's browser) is named to
// the agent as what the user now sees; one shown inside the window needs no word.
TEST_F(SessionFramesTest, APageOpenedOutsideTheSharedWindowIsAnnouncedToTheAgent) {
    Halvora::instance().setCurrentSession(session);
    for (const auto shown : {platform::PageShown::inApplication, platform::PageShown::outside}) {
        browser->shownAs = shown;
        const auto before = sent("screen").size();
        session->agentEventReceived(*HLVURL::from(Json{{"type", "URL"}, {"url", "https://example.com/help"}}));
        settle();
        const auto screens = sent("screen");
        ASSERT_EQ(screens.size(), before + (shown == platform::PageShown::outside ? 1 : 0));
        if (shown != platform::PageShown::outside) continue;
        EXPECT_EQ(screens.back()["class"], Halvora::kOutsidePageScreen);
        EXPECT_EQ(screens.back()["title"], "Opened outside the shared window: https://example.com/help");
    }
}

// A frame is the key window at one pixel per point, shrunk only past the longest side allowed,
// whatever the size of the screen it stands on (a regions record says the picture's size).
TEST_F(SessionFramesTest, AFrameIsTheKeyWindowAtOnePixelPerPointUpToTheLongestSide) {
    struct Case {
        platform::Rect screen, window;
        int maxSide;  // 0: the default
        int width, height;
    };
    const Case cases[] = {
        {{0, 0, 3840, 2160}, {0, 0, 1280, 800}, 0, 1280, 800},  // a desktop window on a 4K screen
        {{0, 0, 1280, 800}, {0, 0, 2560, 1600}, 0, 1920, 1200},
        {{0, 0, 390, 844}, {0, 0, 390, 844}, 500, 231, 500},    // as phones had it
    };
    ui->tellsRenders = true;
    session->frameLoop();
    stream()->fire("sync", {Json{{"regions", true}}});
    settle();
    for (const Case& c : cases) {
        platform::install({.screen = std::make_shared<platform::FixedScreen>(c.screen)});
        ui->key = std::make_shared<FakeWindow>(c.window, kWhite);
        ui->windowList = {ui->key};
        session->setMaxFrameSide(c.maxSide);
        auto marker = std::make_shared<FakeView>(platform::Rect{100, 100, 40, 40}, kBlue);
        ui->key->root->addSubview(marker);
        for (const Rgba fill : {kBlue, kWhite}) {  // the new size goes whole, the change as a region
            marker->setFill(fill);
            ui->render();
            advance(1s);
            settle();
        }
        const Json last = sent("frame").back();
        ASSERT_TRUE(last.contains("regions")) << c.window.width << "x" << c.window.height;
        EXPECT_EQ(last["width"], c.width);
        EXPECT_EQ(last["height"], c.height);
    }
}

// Changed tiles of 32 pixels, joined side by side and then down over the same columns, cut to
// the frame's edges.
TEST(FrameChangeDetectorTest, ReportsTheChangedTilesAsFewRectangles) {
    struct Case {
        const char* name;
        std::vector<std::pair<int, int>> changedPixels;
        std::vector<PixelRect> regions;
        std::vector<PixelRect> joinedIntoOne;
    };
    const Case cases[] = {
        {"nothing", {}, {}, {}},
        {"one pixel", {{0, 0}}, {{0, 0, 32, 32}}, {{0, 0, 32, 32}}},
        {"at the partial far corner", {{99, 69}}, {{96, 64, 4, 6}}, {{96, 64, 4, 6}}},
        {"neighbours in a band", {{33, 5}, {70, 5}}, {{32, 0, 64, 32}}, {{32, 0, 64, 32}}},
        {"one column down every band", {{5, 5}, {5, 40}, {5, 65}}, {{0, 0, 32, 70}}, {{0, 0, 32, 70}}},
        {"diagonal", {{5, 5}, {40, 40}}, {{0, 0, 32, 32}, {32, 32, 32, 32}}, {{0, 0, 64, 64}}},
        {"an L", {{5, 5}, {40, 5}, {5, 40}}, {{0, 0, 64, 32}, {0, 32, 32, 32}}, {{0, 0, 64, 64}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        RgbaFrame frame;
        frame.resize(100, 70);
        FrameChangeDetector detector;
        EXPECT_TRUE(detector.compare(frame).whole) << "the first frame";
        for (const auto& [x, y] : c.changedPixels) frame.row(y)[x * RgbaFrame::kBytesPerPixel + 1] = 9;
        const FrameChanges changes = detector.compare(frame);
        EXPECT_FALSE(changes.whole);
        EXPECT_EQ(changes.regions, c.regions);
        EXPECT_TRUE(detector.compare(frame).none()) << "the changed frame is remembered";
        std::vector<PixelRect> joined = changes.regions;
        joinRegions(joined, 1);
        if (!joined.empty()) {
            EXPECT_EQ(joined, c.joinedIntoOne);
        }
        detector.invalidate();
        EXPECT_TRUE(detector.compare(frame).whole);
        frame.resize(70, 100);
        EXPECT_TRUE(detector.compare(frame).whole) << "another size";
    }
}

}  // namespace
}  // namespace halvora
